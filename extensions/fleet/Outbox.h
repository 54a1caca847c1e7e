#pragma once

#include "extensions/fleet/Sqlite.h"
#include "messages/fleet/FleetPayload.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace gk::fleet {

/// What a robot has to tell and the broker has not taken yet: an event, or a gap in the events.
struct Entry {
  std::string bootId;
  /// The event's number twice, or the ends of the gap.
  std::uint64_t from = 0;
  std::uint64_t to = 0;
  /// When it was raised, in microseconds since 1970.
  std::int64_t time = 0;
  /// The last level of the event's topic; empty for a gap.
  std::string level;
  /// As it is sent, of an event without the member "historical".
  std::string body;

  bool isGap() const noexcept { return level.empty(); }
};

Entry gapEntry(messages::FleetGap gap, std::int64_t time);

/// An entry of the outbox, by its place in the order of entries.
struct Kept {
  std::int64_t id = 0;
  Entry entry;
};

struct OutboxOptions {
  std::string file;
  /// Beyond these the oldest events go.
  std::uint64_t bytes = 1'000'000'000;
  /// By which SQLite reaches the file; null for the system's.
  const char* vfs = nullptr;
};

/// Another process has the outbox, or it cannot be had at all.
class OutboxError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// What has to survive the end of the process and of the machine's power, in a file: entries are on
/// the disk when `commit` returns, and stay there until they are acknowledged. One process has it
/// at a time. For one thread.
///
/// A SQLite database with a write-ahead log that is written through at each commit; readable by
/// `sqlite3` in the field.
class Outbox {
public:
  struct Opened {
    std::unique_ptr<Outbox> outbox;
    /// Where a damaged file was put aside, if there was one, and what could still be told of it.
    std::string aside;
    std::vector<messages::FleetGap> lost;
  };
  /// Raises `OutboxError` when another process has it, and `SqliteError` when it can be neither
  /// read nor made. A damaged file is put aside under another name.
  static Opened open(const OutboxOptions& options);

  ~Outbox();
  Outbox(const Outbox&) = delete;
  Outbox& operator=(const Outbox&) = delete;

  struct Committed {
    /// The first of `entries` got this id, each the one after the former's; merged gaps none.
    std::int64_t firstId = 0;
    /// What had to be given up for want of room; gaps stand in the outbox in its place.
    std::vector<messages::FleetGap> givenUp;
    /// Gaps stand somewhere else than at the end.
    bool isRearranged = false;
  };
  /// Takes out what the broker has `acknowledged`, puts `entries` in, and makes room where there is
  /// too much, but not of what is `onItsWay`. All of it or, with a `SqliteError`, nothing.
  Committed commit(const std::vector<std::int64_t>& acknowledged, const std::vector<Entry>& entries,
                   const std::set<std::int64_t>& onItsWay);

  /// At most so many entries behind `after` and before `before`, in order.
  std::vector<Kept> read(std::int64_t after, std::int64_t before, std::size_t most);

  /// What the next entry gets.
  std::int64_t nextId() const noexcept { return fNextId; }
  std::uint64_t count() const noexcept { return fTotals.count; }
  std::uint64_t bytes() const noexcept { return fTotals.bytes; }
  /// When the oldest entry was raised.
  std::optional<std::int64_t> oldest();

private:
  struct Lock;
  struct Statements;
  struct Totals {
    std::uint64_t count = 0;
    std::uint64_t bytes = 0;
  };

  Outbox(const OutboxOptions& options, std::shared_ptr<Lock> lock);

  void xPrepare();
  void xInsert(std::int64_t id, const Entry& entry);
  void xRemove(std::int64_t id);
  /// Puts a gap in, together with its neighbours if they are gaps and nobody sends them.
  void xAddGap(std::int64_t id, Entry gap, const std::set<std::int64_t>& onItsWay);
  bool xTakeNeighbour(SqliteStatement& find, std::uint64_t seq, Entry& gap,
                      const std::set<std::int64_t>& onItsWay);
  void xMakeRoom(const std::set<std::int64_t>& onItsWay, Committed& committed);
  std::vector<messages::FleetGap> xSalvage() const;

  const OutboxOptions fOptions;
  std::shared_ptr<Lock> fLock;
  SqliteFile fFile;
  std::unique_ptr<Statements> fStatements;
  std::int64_t fNextId = 1;
  Totals fTotals;
};

} // namespace gk::fleet
