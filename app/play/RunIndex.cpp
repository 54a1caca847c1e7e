#include "app/play/RunIndex.h"

#include "formats/text/InputError.h"

#include <algorithm>
#include <map>
#include <string_view>

namespace gk::app {

namespace {

bool isEvent(const GK::GKNotice& notice) {
  return notice.kind != GK::GKNotice::Kind::Log;
}

} // namespace

RunIndex::RunIndex(const RunTape& tape, std::function<void()> onDone)
    : fTape(tape), fOnDone(std::move(onDone)), fThread([this] { xRead(); }) {}

RunIndex::~RunIndex() {
  fIsEnding.store(true, std::memory_order_relaxed);
  fThread.join();
}

void RunIndex::xRead() {
  try {
    for (std::size_t chunk = 0;
         chunk < fTape.chunkCount() && !fIsEnding.load(std::memory_order_relaxed); ++chunk) {
      std::vector<TapeEntry> entries = fTape.load(chunk, RunTape::Detail::WithoutSamples);
      const std::lock_guard lock(fMutex);
      for (TapeEntry& entry : entries) {
        if (entry.kind == TapeEntry::Kind::Raise || entry.kind == TapeEntry::Kind::Log) {
          entry.notice.time = entry.time;
          if (isEvent(entry.notice) && (fTimes.empty() || fTimes.back() < entry.time)) {
            fTimes.push_back(entry.time);
          }
          fNotices.push_back(std::move(entry.notice));
        }
        for (auto& [key, value] : entry.values) {
          if (!fTape.isSampled(key) && fChangeCount < kMostChanges) {
            ++fChangeCount;
            fChanges[fTape.keys()[key]].emplace_back(entry.time, std::move(value));
          }
        }
      }
    }
  } catch (const formats::InputError&) { // NOLINT(bugprone-empty-catch): it cannot be read any more
  }
  {
    // Chunks may overlap a little.
    const std::lock_guard lock(fMutex);
    std::ranges::stable_sort(fNotices, {}, &GK::GKNotice::time);
    std::ranges::sort(fTimes);
  }
  fIsDone.store(true, std::memory_order_release);
  if (!fIsEnding.load(std::memory_order_relaxed)) {
    fOnDone();
  }
}

std::vector<GK::GKNotice> RunIndex::noticesIn(GK::GKMicros from, GK::GKMicros to) const {
  const std::lock_guard lock(fMutex);
  std::vector<GK::GKNotice> notices;
  for (const GK::GKNotice& notice : fNotices) {
    if (notice.time >= from && notice.time <= to) {
      notices.push_back(notice);
    }
  }
  return notices;
}

std::optional<GK::GKMicros> RunIndex::eventFrom(GK::GKMicros time, int count) const {
  const std::lock_guard lock(fMutex);
  if (fTimes.empty() || count == 0) {
    return std::nullopt;
  }
  const auto size = static_cast<std::int64_t>(fTimes.size());
  const auto place = count > 0 ? std::ranges::upper_bound(fTimes, time) - 1
                               : std::ranges::lower_bound(fTimes, time);
  const std::int64_t wanted = (place - fTimes.begin()) + count;
  return fTimes[static_cast<std::size_t>(std::clamp<std::int64_t>(wanted, 0, size - 1))];
}

std::vector<std::pair<std::string, GK::GKValue>> RunIndex::valuesAt(GK::GKMicros time) const {
  const std::lock_guard lock(fMutex);
  std::vector<std::pair<std::string, GK::GKValue>> values;
  for (const auto& [key, changes] : fChanges) {
    const auto after =
        std::ranges::upper_bound(changes, time, {}, &std::pair<GK::GKMicros, GK::GKValue>::first);
    if (after != changes.begin()) {
      values.emplace_back(key, std::prev(after)->second);
    }
  }
  std::map<std::string_view, const GK::GKValue*> left;
  for (const GK::GKNotice& notice : fNotices) {
    if (isEvent(notice) && notice.time <= time) {
      left[notice.name] = &notice.value;
    }
  }
  for (const auto& [name, value] : left) {
    values.emplace_back(name, *value);
  }
  return values;
}

} // namespace gk::app
