#pragma once

#include "extensions/fleet/Outbox.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace gk::fleet {

/// Decides which entry goes to the broker next: what has just happened first, then, at a limited
/// rate, what has waited in the outbox. Keeps count of what is on its way, and of what the broker
/// refuses, which stays in the outbox.
///
/// Entries with an id below 1 are in no outbox: when they are lost, they are given up. For one
/// thread; does not tell the time itself.
class Courier {
public:
  using Time = std::chrono::steady_clock::time_point;

  struct Options {
    /// Entries on their way at a time.
    std::size_t window = 100;
    /// Of what has just happened, so many are kept in memory; with more, the connection is too slow
    /// and they become backlog.
    std::size_t live = 4096;
    /// Entries of the backlog a second.
    double backlogRate = 200;
  };

  /// Gives an entry to the connection. Returns the number under which it is acknowledged; nothing
  /// when there is no connection any more. Raises `MqttError` when it can never be sent.
  using Send = std::function<std::optional<int>(const Entry& entry, bool isHistorical)>;
  /// The topic of an entry could not be served, and why.
  using Refused = std::function<void(const Entry& entry, const std::string& why)>;

  Courier(std::string bootId, Options options, Send send, Refused refused)
      : fBootId(std::move(bootId)), fOptions(options), fSend(std::move(send)),
        fTellRefused(std::move(refused)) {}

  /// A connection begins: events of this boot from `firstSeq` on are not historical. `nextId`: what
  /// the outbox gives to the next entry.
  void onConnected(Time now, std::uint64_t firstSeq, std::int64_t nextId);
  /// The connection has ended: what was on its way is in the outbox still, or lost.
  void onClosed();

  /// Something has just happened. `isKept`: it is in the outbox under its id.
  void add(Kept entry);
  /// Entries of the outbox have other places than before, or there is another outbox.
  void rescan(std::int64_t nextId);

  /// Sends what may be sent. `outbox` may be null. Raises `SqliteError`. Returns when there will be
  /// more to be done, if that is a question of time.
  std::optional<Time> pump(Time now, Outbox* outbox);

  void onPublished(int number, int reason);

  /// Entries of the outbox that the broker has acknowledged; they are for the caller to take out.
  std::vector<std::int64_t>& acknowledged() noexcept { return fAcknowledged; }
  const std::set<std::int64_t>& onItsWay() const noexcept { return fOnItsWay; }
  /// What nobody will get any more, since that was taken last.
  std::vector<messages::FleetGap> takeGivenUp();
  /// Events of this boot that the broker has taken since that was taken last.
  std::vector<std::uint64_t> takeSettled();
  /// The outbox is gone: what is on its way must not be taken out of the next one.
  void forgetOutbox();
  std::size_t refusedCount() const noexcept { return fRefusedIds.size(); }
  bool isIdle() const noexcept { return fFlying.empty() && fLive.empty(); }

private:
  bool xSend(const Kept& kept);
  /// Whether it must wait, for its topic is refused; then that is seen to.
  bool xIsHeld(const Kept& kept);
  void xGiveUp(const Entry& entry);
  void xHold(const Kept& kept, const std::string& why);
  bool xReadMore(Outbox* outbox);
  /// Once in a while the broker is asked again about what it refuses.
  void xRetryRefused(Time now, Outbox* outbox);

  const std::string fBootId;
  const Options fOptions;
  const Send fSend;
  const Refused fTellRefused;

  bool fIsConnected = false;
  std::uint64_t fFirstSeq = 1;
  /// From this id on entries come by `add`; those before are read from the outbox.
  std::int64_t fLiveFrom = 1;
  std::int64_t fCursor = 0;
  bool fIsBacklogRead = false;
  std::deque<Kept> fLive;
  std::deque<Kept> fBacklog;
  double fTokens = 0;
  Time fLastToken{};
  std::optional<Time> fRetryRefused;

  std::map<int, Kept> fFlying;
  std::set<std::int64_t> fOnItsWay;
  std::set<std::int64_t> fRefusedIds;
  std::set<std::string> fRefusedLevels;
  std::vector<std::int64_t> fAcknowledged;
  std::vector<messages::FleetGap> fGivenUp;
  std::vector<std::uint64_t> fSettled;
};

} // namespace gk::fleet
