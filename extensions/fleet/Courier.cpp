#include "extensions/fleet/Courier.h"

#include "messages/mqtt/MqttMessage.h"

#include <algorithm>
#include <utility>

namespace gk::fleet {

namespace {

/// What is read from the outbox at a time.
constexpr std::size_t kChunk = 256;
/// The backlog goes out in bursts of so many seconds' worth at most.
constexpr double kBurst = 0.1;
/// When the broker is asked again about what it refuses.
constexpr std::chrono::seconds kRefusedPause{60};

bool isInOutbox(const Kept& kept) {
  return kept.id > 0;
}

} // namespace

void Courier::onConnected(Time now, std::uint64_t firstSeq, std::int64_t nextId) {
  fIsConnected = true;
  fFirstSeq = firstSeq;
  fLastToken = now;
  fTokens = 1;
  rescan(nextId);
}

void Courier::onClosed() {
  fIsConnected = false;
  for (const auto& [number, kept] : fFlying) {
    if (!isInOutbox(kept)) {
      xGiveUp(kept.entry);
    }
  }
  for (const Kept& kept : fLive) {
    if (!isInOutbox(kept)) {
      xGiveUp(kept.entry);
    }
  }
  fFlying.clear();
  fOnItsWay.clear();
  fLive.clear();
  fBacklog.clear();
  fRefusedLevels.clear();
  fRefusedIds.clear();
  fRetryRefused.reset();
}

void Courier::rescan(std::int64_t nextId) {
  std::erase_if(fLive, isInOutbox);
  fLiveFrom = nextId;
  fCursor = 0;
  fIsBacklogRead = false;
  fBacklog.clear();
}

void Courier::forgetOutbox() {
  fAcknowledged.clear();
  fRefusedIds.clear();
  for (auto& [number, kept] : fFlying) {
    kept.id = 0;
  }
  fOnItsWay.clear();
  rescan(1);
}

void Courier::add(Kept entry) {
  if (!fIsConnected) {
    if (!isInOutbox(entry)) {
      xGiveUp(entry.entry);
    }
    return;
  }
  if (fLive.size() >= fOptions.live) {
    if (isInOutbox(entry)) {
      // Those up to this one are read from there when their turn has come.
      rescan(entry.id + 1);
      return;
    }
    xGiveUp(fLive.front().entry);
    fLive.pop_front();
  }
  fLive.push_back(std::move(entry));
}

void Courier::xGiveUp(const Entry& entry) {
  fGivenUp.push_back({entry.bootId, entry.from, entry.to});
}

void Courier::xHold(const Kept& kept, const std::string& why) {
  if (fRefusedLevels.insert(kept.entry.level).second) {
    fTellRefused(kept.entry, why);
  }
  if (isInOutbox(kept)) {
    fRefusedIds.insert(kept.id);
  } else {
    xGiveUp(kept.entry);
  }
}

bool Courier::xIsHeld(const Kept& kept) {
  if (!fRefusedLevels.contains(kept.entry.level)) {
    return false;
  }
  xHold(kept, {});
  return true;
}

bool Courier::xSend(const Kept& kept) {
  const Entry& entry = kept.entry;
  const bool isHistorical = entry.bootId != fBootId || entry.from < fFirstSeq;
  try {
    const std::optional<int> number = fSend(entry, isHistorical);
    if (!number) {
      return false;
    }
    fFlying.insert_or_assign(*number, kept);
    if (isInOutbox(kept)) {
      fOnItsWay.insert(kept.id);
      fRefusedIds.erase(kept.id);
    }
  } catch (const messages::MqttError& error) {
    xHold(kept, error.what());
  }
  return true;
}

bool Courier::xReadMore(Outbox* outbox) {
  if (outbox == nullptr || fIsBacklogRead) {
    return false;
  }
  while (fBacklog.empty()) {
    const std::vector<Kept> entries = outbox->read(fCursor, fLiveFrom, kChunk);
    if (entries.empty()) {
      fIsBacklogRead = true;
      return false;
    }
    fCursor = entries.back().id;
    for (const Kept& kept : entries) {
      const bool isTaken = std::ranges::find(fAcknowledged, kept.id) != fAcknowledged.end();
      if (!isTaken && !fOnItsWay.contains(kept.id)) {
        fBacklog.push_back(kept);
      }
    }
  }
  return true;
}

void Courier::xRetryRefused(Time now, Outbox* outbox) {
  if (fRefusedLevels.empty()) {
    return;
  }
  if (!fRetryRefused) {
    fRetryRefused = now + kRefusedPause;
  } else if (now >= *fRetryRefused && fLive.empty()) {
    fRetryRefused.reset();
    fRefusedLevels.clear();
    fRefusedIds.clear();
    rescan(outbox != nullptr ? outbox->nextId() : 1);
  }
}

std::optional<Courier::Time> Courier::pump(Time now, Outbox* outbox) {
  if (!fIsConnected) {
    return std::nullopt;
  }
  while (!fLive.empty() && fFlying.size() < fOptions.window) {
    if (!xIsHeld(fLive.front()) && !xSend(fLive.front())) {
      return std::nullopt;
    }
    fLive.pop_front();
  }
  xRetryRefused(now, outbox);
  const double most = std::max(1.0, fOptions.backlogRate * kBurst);
  const double seconds = std::chrono::duration<double>(now - fLastToken).count();
  fTokens = std::min(most, fTokens + seconds * fOptions.backlogRate);
  fLastToken = now;
  while (fFlying.size() < fOptions.window) {
    if (fBacklog.empty() && !xReadMore(outbox)) {
      return fRetryRefused;
    }
    if (xIsHeld(fBacklog.front())) {
      fBacklog.pop_front();
      continue;
    }
    if (fTokens < 1) {
      const std::chrono::duration<double> pause((1 - fTokens) / fOptions.backlogRate);
      return now + std::chrono::ceil<std::chrono::milliseconds>(pause);
    }
    fTokens -= 1;
    if (!xSend(fBacklog.front())) {
      return std::nullopt;
    }
    fBacklog.pop_front();
  }
  return fRetryRefused;
}

void Courier::onPublished(int number, int reason) {
  const auto found = fFlying.find(number);
  if (found == fFlying.end()) {
    return;
  }
  const Kept kept = std::move(found->second);
  fFlying.erase(found);
  fOnItsWay.erase(kept.id);
  if (reason >= messages::kMqttRefused) {
    xHold(kept, messages::mqttReasonText(reason));
    return;
  }
  if (isInOutbox(kept)) {
    fAcknowledged.push_back(kept.id);
  }
  if (kept.entry.bootId == fBootId && !kept.entry.isGap()) {
    fSettled.push_back(kept.entry.from);
  }
}

std::vector<messages::FleetGap> Courier::takeGivenUp() {
  return std::exchange(fGivenUp, {});
}

std::vector<std::uint64_t> Courier::takeSettled() {
  return std::exchange(fSettled, {});
}

} // namespace gk::fleet
