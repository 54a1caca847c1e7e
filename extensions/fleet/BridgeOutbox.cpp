#include "extensions/fleet/Bridge.h"
#include "gk/GKClock.h"
#include "zu/log.h"

#include <algorithm>
#include <iterator>
#include <utility>

// Events into the outbox, and what becomes of them without one.

namespace gk::fleet {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

/// Events are on the disk so soon after they were raised, with some time left for the disk.
constexpr milliseconds kJoinedFor{80};
/// What is acknowledged may wait longer: at worst it is sent twice.
constexpr milliseconds kAcknowledgedFor{500};
constexpr std::size_t kMostAcknowledged = 500;

constexpr seconds kOutboxPause{1};
constexpr seconds kLossPause{60};

std::string countText(std::uint64_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

} // namespace

void Bridge::xTakeEvents() {
  EventQueue::Taken taken = fQueue->take();
  fIsFactsheetDue = fIsFactsheetDue || taken.isDeclared;
  if (taken.events.empty()) {
    return;
  }
  const std::int64_t clockStart = xWallMicros() - GK::GKClock::instance().elapsed();
  for (EventQueue::Event& event : taken.events) {
    if (event.seq > fNextSeq) {
      zu::log::error(kCategory, "take") << countText(event.seq - fNextSeq, "event")
                                        << " came faster than they could be stored, and are lost";
      xAddGap({fBootId, fNextSeq, event.seq - 1});
    }
    fNextSeq = event.seq + 1;
    const std::int64_t time = clockStart + event.time;
    fPending.push_back({fBootId, event.seq, event.seq, time, messages::topicLevel(event.name),
                        messages::eventBody({event.name, event.kind, std::move(event.value), time,
                                             event.time, fBootId, event.seq, false})});
  }
}

void Bridge::xAddGap(const messages::FleetGap& gap) {
  ++fGapCount;
  fGaps[gap.bootId].add(gap.from, gap.to);
}

void Bridge::xCommitIfDue(Time now) {
  const std::size_t acknowledged = fCourier.acknowledged().size();
  if (fPending.empty() && fGaps.empty() && acknowledged == 0) {
    return;
  }
  const bool isMuch = acknowledged >= kMostAcknowledged;
  const bool isLate = !fPending.empty() || isMuch;
  const Time due = fLastCommit + (isLate ? kJoinedFor : kAcknowledgedFor);
  if (now < due) {
    xWakeAt(due);
    return;
  }
  xCommit(now);
}

void Bridge::xCommit(Time now) {
  fLastCommit = now;
  std::vector<Entry> entries;
  for (const auto& [boot, ranges] : fGaps) {
    for (const auto& [from, to] : ranges.ranges()) {
      entries.push_back(gapEntry({boot, from, to}, xWallMicros()));
    }
  }
  entries.insert(entries.end(), std::make_move_iterator(fPending.begin()),
                 std::make_move_iterator(fPending.end()));
  fPending.clear();
  bool isDone = false;
  try {
    isDone = xTryCommit(entries);
  } catch (const SqliteError& error) {
    xOnOutboxTrouble(now, error);
    xRemoveAcknowledged();
  }
  if (!isDone) {
    xPassOnWithoutOutbox(std::move(entries));
  }
  xCollectGivenUp();
}

/// False where the outbox cannot be used at present.
bool Bridge::xTryCommit(const std::vector<Entry>& entries) {
  if (fOutbox == nullptr || steady_clock::now() < fOutboxRetry) {
    return false;
  }
  const Outbox::Committed committed =
      fOutbox->commit(fCourier.acknowledged(), entries, fCourier.onItsWay());
  fCourier.acknowledged().clear();
  for (const std::uint64_t seq : fCourier.takeSettled()) {
    fUnsettled.remove(seq, seq);
  }
  if (!std::exchange(fOutboxTrouble, {}).empty()) {
    zu::log::info(kCategory, "store") << "the outbox can be used again";
  }
  fGaps.clear();
  const bool hasGap = std::ranges::any_of(entries, &Entry::isGap);
  for (const Entry& entry : entries) {
    if (!entry.isGap()) {
      fUnsettled.add(entry.from, entry.to);
    }
  }
  for (const messages::FleetGap& gap : committed.givenUp) {
    ++fGapCount;
    if (gap.bootId == fBootId) {
      fUnsettled.remove(gap.from, gap.to);
    }
  }
  if (!committed.givenUp.empty() &&
      (!fLastLossTold || fLastCommit >= *fLastLossTold + kLossPause)) {
    fLastLossTold = fLastCommit;
    zu::log::error(kCategory, "store") << "the outbox has reached its " << fSettings.outbox.bytes
                                       << " bytes: the oldest events are given up";
  }
  if (committed.isRearranged || hasGap) {
    // Gaps may have been merged, and places have changed: everything is read from there.
    fCourier.rescan(fOutbox->nextId());
    return true;
  }
  std::int64_t id = committed.firstId;
  for (const Entry& entry : entries) {
    fCourier.add({id++, entry});
  }
  return true;
}

/// Where nothing more can be stored, what goes out makes room.
void Bridge::xRemoveAcknowledged() {
  if (fOutbox == nullptr || fCourier.acknowledged().empty()) {
    return;
  }
  try {
    fOutbox->commit(fCourier.acknowledged(), {}, fCourier.onItsWay());
    fCourier.acknowledged().clear();
  } catch (const SqliteError&) { // NOLINT(bugprone-empty-catch): that has been told
  }
}

void Bridge::xPassOnWithoutOutbox(std::vector<Entry> entries) {
  const bool isConnected = fClient != nullptr && fClient->isConnected();
  for (Entry& entry : entries) {
    if (isConnected) {
      if (entry.isGap()) {
        fGaps.erase(entry.bootId);
      }
      fCourier.add({0, std::move(entry)});
    } else if (!entry.isGap()) {
      xAddGap({entry.bootId, entry.from, entry.to});
    }
  }
}

void Bridge::xCollectGivenUp() {
  for (const messages::FleetGap& gap : fCourier.takeGivenUp()) {
    xAddGap(gap);
  }
}

void Bridge::xOnOutboxTrouble(Time now, const SqliteError& error) {
  fOutboxRetry = now + kOutboxPause;
  if (fOutboxTrouble.empty()) {
    fOutboxTrouble = error.what();
    zu::log::error(kCategory, "store")
        << error.what() << ": until that is mended, events that cannot be sent at once are lost";
  }
  if (error.isDamage() && fOutbox != nullptr) {
    fOutbox.reset();
    fCourier.forgetOutbox();
    for (const auto& [from, to] : fUnsettled.ranges()) {
      xAddGap({fBootId, from, to});
    }
    fUnsettled.clear();
  }
}

/// An outbox that could not be opened, or was damaged, is opened anew.
void Bridge::xReopen(Time now) {
  if (fOutbox != nullptr || now < fOutboxRetry) {
    return;
  }
  try {
    xUse(Outbox::open(fSettings.outbox));
  } catch (const SqliteError& error) {
    xOnOutboxTrouble(now, error);
  } catch (const OutboxError&) {
    fOutboxRetry = now + kOutboxPause;
  }
}

void Bridge::xUse(Outbox::Opened opened) {
  fOutbox = std::move(opened.outbox);
  if (!opened.aside.empty()) {
    zu::log::error(kCategory, "store")
        << "the outbox was damaged: it was put aside as " << opened.aside
        << ", and what could not be read of it is lost";
  }
  for (const messages::FleetGap& gap : opened.lost) {
    if (gap.bootId != fBootId) {
      xAddGap(gap);
    }
  }
  fCourier.rescan(fOutbox->nextId());
}

} // namespace gk::fleet
