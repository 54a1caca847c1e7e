#include "extensions/ros2/Feed.h"

#include "gk/GKClock.h"
#include "messages/notices/NoticeSize.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace gk::ros2 {

namespace {

/// Ticks whose times wait at most: seconds of a usual loop.
constexpr std::size_t kMostTimes = 256;

} // namespace

Feed::Feed(std::size_t capacity) : fNotices(capacity) {
  fBatch.times.reserve(kMostTimes);
}

void Feed::onNotice(const GK::GKNotice& notice) {
  switch (notice.kind) {
  case GK::GKNotice::Kind::Event:
  case GK::GKNotice::Kind::MicroEvent:
  case GK::GKNotice::Kind::Log:
    break;
  default:
    return;
  }
  {
    const std::lock_guard lock(fMutex);
    fNotices.add(notice, messages::bytesOf(notice));
    fIsNews = true;
  }
  fWake.notify_one();
}

// On the loop's own thread: allocates nothing once the module is known.
void Feed::onTick(GK::GKMicros time, const GK::GKTask& task) {
  {
    const std::lock_guard lock(fMutex);
    Tick& tick = fBatch.ticks[xLoop(task)];
    tick.time = time;
    ++tick.number;
    fIsNews = true;
  }
  fWake.notify_one();
}

// As above. They follow the tick at once, and are told with it or the next one.
void Feed::onTickTimes(const GK::GKTickTimes& times, const GK::GKTask& task) {
  const std::lock_guard lock(fMutex);
  if (fBatch.times.size() < kMostTimes) {
    fBatch.times.push_back({xLoop(task), times});
  }
}

std::size_t Feed::xLoop(const GK::GKTask& task) {
  const auto known = std::ranges::find(fBatch.ticks, task.module, &Tick::module);
  const auto place = static_cast<std::size_t>(known - fBatch.ticks.begin());
  if (known == fBatch.ticks.end()) {
    fBatch.ticks.push_back({task.module, 0, 0});
  }
  return place;
}

void Feed::take(Batch& batch, std::chrono::milliseconds patience) {
  batch.times.clear();
  batch.times.reserve(kMostTimes);
  std::unique_lock<std::mutex> lock(fMutex);
  fWake.wait_for(lock, patience, [this] { return fIsNews; });
  fNotices.takeAll(batch.notices);
  std::swap(batch.times, fBatch.times);
  batch.ticks = fBatch.ticks;
  batch.isEnd = fBatch.isEnd;
  fIsNews = fBatch.isEnd;
}

std::uint64_t Feed::dropped() const {
  const std::lock_guard lock(fMutex);
  return fNotices.dropped();
}

void Feed::end() {
  {
    const std::lock_guard lock(fMutex);
    fBatch.isEnd = true;
    fIsNews = true;
  }
  fWake.notify_one();
}

} // namespace gk::ros2
