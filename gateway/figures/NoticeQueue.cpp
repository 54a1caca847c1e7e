#include "gateway/figures/NoticeQueue.h"

#include "gk/GKClock.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace gk::gateway {

NoticeQueue::NoticeQueue(std::function<void()> wake, std::size_t capacity)
    : fWake(std::move(wake)), fCapacity(capacity) {}

void NoticeQueue::onNotice(const GK::GKNotice& notice) {
  // What goes into the memory is seen there; orders and resources have no channel.
  switch (notice.kind) {
  case GK::GKNotice::Kind::Insert:
  case GK::GKNotice::Kind::Order:
  case GK::GKNotice::Kind::Resource:
    return;
  default:
    break;
  }
  {
    const std::lock_guard lock(fMutex);
    if (fNotices.size() >= fCapacity) {
      fNotices.pop_front();
      fDropped.fetch_add(1, std::memory_order_relaxed);
    }
    fNotices.push_back(notice);
    if (std::exchange(fIsAwake, true)) {
      return;
    }
  }
  fWake();
}

// On the loop's own thread: allocates nothing once the module is known.
void NoticeQueue::onTick(GK::GKMicros time, const GK::GKTask& task) {
  {
    const std::lock_guard lock(fMutex);
    auto known = std::ranges::find(fLoops, task.module, &Loop::module);
    if (known == fLoops.end()) {
      known = fLoops.insert(fLoops.end(), {task.module, 0, 0});
    }
    known->time = time;
    ++known->ticks;
    if (std::exchange(fIsAwake, true)) {
      return;
    }
  }
  fWake();
}

NoticeQueue::Batch NoticeQueue::take(std::size_t most) {
  Batch batch;
  const std::lock_guard lock(fMutex);
  const auto end = fNotices.begin() + static_cast<std::ptrdiff_t>(std::min(most, fNotices.size()));
  batch.notices.assign(std::make_move_iterator(fNotices.begin()), std::make_move_iterator(end));
  fNotices.erase(fNotices.begin(), end);
  batch.isMore = !fNotices.empty();
  batch.loops = fLoops;
  fIsAwake = false;
  return batch;
}

} // namespace gk::gateway
