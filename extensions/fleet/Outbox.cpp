#include "extensions/fleet/Outbox.h"

#include "messages/text/WallTime.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <sqlite3.h>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

namespace gk::fleet {

namespace {

using messages::FleetGap;

constexpr const char* kSchema = R"(
  CREATE TABLE IF NOT EXISTS entries(
    id INTEGER PRIMARY KEY,
    boot TEXT NOT NULL,
    first INTEGER NOT NULL,
    last INTEGER NOT NULL,
    time INTEGER NOT NULL,
    level TEXT,
    body TEXT NOT NULL,
    bytes INTEGER NOT NULL);
  CREATE INDEX IF NOT EXISTS gaps ON entries(boot, first) WHERE level IS NULL;
  PRAGMA user_version = 1;
)";
/// As `user_version` has it.
constexpr const char* kVersion = "1";

/// What an entry takes besides its texts, about.
constexpr std::uint64_t kRowBytes = 40;
/// What a gap takes, at most.
constexpr std::uint64_t kGapBytes = 192;
/// Where there is too much, so much more of what may be there goes at once: a hundredth.
constexpr std::uint64_t kSpare = 100;

/// SQLite's log does not stay larger than that once its pages are in the file.
constexpr const char* kSettings = R"(
  PRAGMA journal_mode = WAL;
  PRAGMA synchronous = FULL;
  PRAGMA journal_size_limit = 4194304;
)";

std::uint64_t bytesOf(const Entry& entry) {
  return kRowBytes + entry.bootId.size() + entry.level.size() + entry.body.size();
}

std::int64_t signedOf(std::uint64_t value) {
  return static_cast<std::int64_t>(value);
}

/// A name beside the file that nothing has yet.
std::string nameAside(const std::string& file) {
  const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::system_clock::now().time_since_epoch());
  const std::string base = file + ".damaged-" + messages::wallTimeText(now.count());
  std::string name = base;
  for (int number = 2; std::filesystem::exists(name); ++number) {
    name = base + "-" + std::to_string(number);
  }
  return name;
}

std::string putAside(const std::string& file) {
  std::string aside = nameAside(file);
  std::filesystem::rename(file, aside);
  for (const char* suffix : {"-wal", "-shm"}) {
    std::error_code ignored;
    std::filesystem::rename(file + suffix, aside + suffix, ignored);
  }
  return aside;
}

} // namespace

Entry gapEntry(FleetGap gap, std::int64_t time) {
  std::string body = messages::gapPayload(gap);
  return {std::move(gap.bootId), gap.from, gap.to, time, {}, std::move(body)};
}

/// Says to other processes that the outbox is taken, for as long as it lives.
struct Outbox::Lock {
  explicit Lock(const std::string& file) {
    const std::string path = file + ".lock";
    descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor < 0) {
      throw OutboxError(path + ": " + std::generic_category().message(errno));
    }
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
      ::close(descriptor);
      throw OutboxError(file + ": another process has this outbox");
    }
  }
  ~Lock() { ::close(descriptor); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  int descriptor = -1;
};

struct Outbox::Statements {
  explicit Statements(const SqliteFile& file)
      : insert(file, "INSERT INTO entries VALUES(?,?,?,?,?,?,?,?)"),
        sizeOf(file, "SELECT bytes FROM entries WHERE id = ?"),
        remove(file, "DELETE FROM entries WHERE id = ?"),
        read(file, "SELECT id, boot, first, last, time, level, body FROM entries "
                   "WHERE id > ? AND id < ? ORDER BY id LIMIT ?"),
        inOrder(file, "SELECT id, boot, first, last, time, level IS NULL, bytes FROM entries "
                      "ORDER BY id"),
        gapBefore(file, "SELECT id, first, last FROM entries "
                        "WHERE level IS NULL AND boot = ?1 AND first <= ?2 AND last = ?2"),
        gapBehind(file, "SELECT id, first, last FROM entries "
                        "WHERE level IS NULL AND boot = ?1 AND first = ?2"),
        oldest(file, "SELECT time FROM entries ORDER BY id LIMIT 1") {}

  SqliteStatement insert;
  SqliteStatement sizeOf;
  SqliteStatement remove;
  SqliteStatement read;
  SqliteStatement inOrder;
  SqliteStatement gapBefore;
  SqliteStatement gapBehind;
  SqliteStatement oldest;
};

Outbox::Opened Outbox::open(const OutboxOptions& options) {
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::path(options.file).parent_path();
  if (!folder.empty()) {
    std::filesystem::create_directories(folder, error);
    if (error) {
      throw OutboxError(folder.string() + ": " + error.message());
    }
  }
  const auto lock = std::make_shared<Lock>(options.file);
  Opened opened;
  try {
    opened.outbox.reset(new Outbox(options, lock));
    try {
      opened.outbox->xPrepare();
      return opened;
    } catch (const SqliteError& damage) {
      if (!damage.isDamage()) {
        throw;
      }
      opened.lost = opened.outbox->xSalvage();
    }
  } catch (const SqliteError& damage) {
    if (!damage.isDamage()) {
      throw;
    }
  }
  opened.outbox.reset();
  opened.aside = putAside(options.file);
  opened.outbox.reset(new Outbox(options, lock));
  opened.outbox->xPrepare();
  return opened;
}

Outbox::Outbox(const OutboxOptions& options, std::shared_ptr<Lock> lock)
    : fOptions(options), fLock(std::move(lock)), fFile(options.file, options.vfs) {}

Outbox::~Outbox() = default;

void Outbox::xPrepare() {
  fFile.run(kSettings);
  if (fFile.text("PRAGMA journal_mode") != "wal") {
    throw OutboxError(fOptions.file + ": the file system cannot keep a write-ahead log");
  }
  if (const std::string check = fFile.text("PRAGMA quick_check(1)"); check != "ok") {
    throw SqliteError(SQLITE_CORRUPT, fOptions.file + ": " + check);
  }
  if (const std::string version = fFile.text("PRAGMA user_version"); version == "0") {
    fFile.run(kSchema);
  } else if (version != kVersion) {
    throw OutboxError(fOptions.file + ": another version of this program made this outbox");
  }
  fStatements = std::make_unique<Statements>(fFile);
  SqliteStatement totals(fFile, "SELECT count(*), sum(bytes), max(id) FROM entries");
  totals.step();
  fTotals = {static_cast<std::uint64_t>(totals.integer(0)),
             static_cast<std::uint64_t>(totals.integer(1))};
  fNextId = totals.integer(2) + 1;
}

std::vector<FleetGap> Outbox::xSalvage() const {
  std::map<std::string, FleetGap> lost;
  // From both ends up to what cannot be read.
  for (const char* rows : {"SELECT boot, first, last FROM entries ORDER BY id",
                           "SELECT boot, first, last FROM entries ORDER BY id DESC"}) {
    try {
      SqliteStatement row(fFile, rows);
      while (row.step()) {
        const auto from = static_cast<std::uint64_t>(row.integer(1));
        const auto to = static_cast<std::uint64_t>(row.integer(2));
        FleetGap& gap =
            lost.try_emplace(row.text(0), FleetGap{row.text(0), from, to}).first->second;
        gap.from = std::min(gap.from, from);
        gap.to = std::max(gap.to, to);
      }
    } catch (const SqliteError&) {
      continue;
    }
  }
  std::vector<FleetGap> gaps;
  gaps.reserve(lost.size());
  for (auto& [boot, gap] : lost) {
    gaps.push_back(std::move(gap));
  }
  return gaps;
}

Outbox::Committed Outbox::commit(const std::vector<std::int64_t>& acknowledged,
                                 const std::vector<Entry>& entries,
                                 const std::set<std::int64_t>& onItsWay) {
  const Totals totals = fTotals;
  const std::int64_t nextId = fNextId;
  Committed committed;
  committed.firstId = nextId;
  try {
    fFile.run("BEGIN IMMEDIATE");
    for (const std::int64_t id : acknowledged) {
      xRemove(id);
    }
    for (const Entry& entry : entries) {
      const std::int64_t id = fNextId++;
      if (entry.isGap()) {
        xAddGap(id, entry, onItsWay);
      } else {
        xInsert(id, entry);
      }
    }
    if (fTotals.bytes > fOptions.bytes) {
      xMakeRoom(onItsWay, committed);
    }
    fFile.run("COMMIT");
  } catch (const SqliteError&) {
    fTotals = totals;
    fNextId = nextId;
    if (sqlite3_get_autocommit(fFile.get()) == 0) {
      sqlite3_exec(fFile.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
    throw;
  }
  return committed;
}

void Outbox::xInsert(std::int64_t id, const Entry& entry) {
  const std::uint64_t bytes = bytesOf(entry);
  SqliteStatement& insert = fStatements->insert;
  insert.bind(1, id).bind(2, entry.bootId).bind(3, signedOf(entry.from));
  insert.bind(4, signedOf(entry.to)).bind(5, entry.time);
  if (entry.isGap()) {
    insert.bindNull(6);
  } else {
    insert.bind(6, entry.level);
  }
  insert.bind(7, entry.body).bind(8, signedOf(bytes)).run();
  ++fTotals.count;
  fTotals.bytes += bytes;
}

void Outbox::xRemove(std::int64_t id) {
  SqliteStatement& sizeOf = fStatements->sizeOf;
  if (!sizeOf.bind(1, id).step()) {
    return;
  }
  const auto bytes = static_cast<std::uint64_t>(sizeOf.integer(0));
  sizeOf.reset();
  fStatements->remove.bind(1, id).run();
  --fTotals.count;
  fTotals.bytes -= bytes;
}

bool Outbox::xTakeNeighbour(SqliteStatement& find, std::uint64_t seq, Entry& gap,
                            const std::set<std::int64_t>& onItsWay) {
  std::int64_t id = 0;
  find.bind(1, gap.bootId).bind(2, signedOf(seq));
  while (id == 0 && find.step()) {
    if (!onItsWay.contains(find.integer(0))) {
      id = find.integer(0);
      gap.from = std::min(gap.from, static_cast<std::uint64_t>(find.integer(1)));
      gap.to = std::max(gap.to, static_cast<std::uint64_t>(find.integer(2)));
    }
  }
  find.reset();
  if (id == 0) {
    return false;
  }
  xRemove(id);
  return true;
}

void Outbox::xAddGap(std::int64_t id, Entry gap, const std::set<std::int64_t>& onItsWay) {
  const bool hasBefore =
      gap.from > 1 && xTakeNeighbour(fStatements->gapBefore, gap.from - 1, gap, onItsWay);
  const bool hasBehind = xTakeNeighbour(fStatements->gapBehind, gap.to + 1, gap, onItsWay);
  if (hasBefore || hasBehind) {
    gap = gapEntry({gap.bootId, gap.from, gap.to}, gap.time);
  }
  xInsert(id, gap);
}

void Outbox::xMakeRoom(const std::set<std::int64_t>& onItsWay, Committed& committed) {
  /// Neighbours by number that go together.
  struct Run {
    Entry gap;
    std::vector<std::int64_t> ids;
    bool hasEvent = false;
  };
  std::uint64_t excess = fTotals.bytes - fOptions.bytes + fOptions.bytes / kSpare;
  std::uint64_t freed = 0;
  std::vector<Run> runs;
  SqliteStatement& rows = fStatements->inOrder;
  while (freed < excess && rows.step()) {
    const std::int64_t id = rows.integer(0);
    if (onItsWay.contains(id)) {
      continue;
    }
    const auto from = static_cast<std::uint64_t>(rows.integer(2));
    const auto to = static_cast<std::uint64_t>(rows.integer(3));
    const bool isGap = rows.integer(5) != 0;
    if (runs.empty() || runs.back().gap.bootId != rows.text(1) || runs.back().gap.to + 1 != from) {
      runs.push_back({{rows.text(1), from, to, rows.integer(4), {}, {}}, {}, false});
      excess += kGapBytes;
    }
    Run& run = runs.back();
    run.gap.to = to;
    run.ids.push_back(id);
    run.hasEvent = run.hasEvent || !isGap;
    freed += isGap ? 0 : static_cast<std::uint64_t>(rows.integer(6));
  }
  rows.reset();
  for (const Run& run : runs) {
    if (!run.hasEvent) {
      continue; // a gap alone: it is all that is left to be told
    }
    for (const std::int64_t id : run.ids) {
      xRemove(id);
    }
    FleetGap gap{run.gap.bootId, run.gap.from, run.gap.to};
    committed.givenUp.push_back(gap);
    committed.isRearranged = true;
    xAddGap(run.ids.back(), gapEntry(std::move(gap), run.gap.time), onItsWay);
  }
}

std::vector<Kept> Outbox::read(std::int64_t after, std::int64_t before, std::size_t most) {
  std::vector<Kept> entries;
  SqliteStatement& rows = fStatements->read;
  rows.bind(1, after).bind(2, before).bind(3, static_cast<std::int64_t>(most));
  while (rows.step()) {
    entries.push_back({rows.integer(0),
                       {rows.text(1), static_cast<std::uint64_t>(rows.integer(2)),
                        static_cast<std::uint64_t>(rows.integer(3)), rows.integer(4), rows.text(5),
                        rows.text(6)}});
  }
  return entries;
}

std::optional<std::int64_t> Outbox::oldest() {
  SqliteStatement& first = fStatements->oldest;
  if (!first.step()) {
    return std::nullopt;
  }
  const std::int64_t time = first.integer(0);
  first.reset();
  return time;
}

} // namespace gk::fleet
