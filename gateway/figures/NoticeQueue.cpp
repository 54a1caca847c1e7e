#include "gateway/figures/NoticeQueue.h"

#include "gk/GKClock.h"
#include "messages/notices/NoticeSize.h"

#include <algorithm>
#include <utility>

namespace gk::gateway {

NoticeQueue::NoticeQueue(std::function<void()> wake, std::size_t capacity)
    : fWake(std::move(wake)), fNotices(capacity) {}

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
    fNotices.add(notice, messages::bytesOf(notice));
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
  fNotices.take(batch.notices, most);
  batch.isMore = !fNotices.isEmpty();
  batch.loops = fLoops;
  fIsAwake = false;
  return batch;
}

std::uint64_t NoticeQueue::dropped() const {
  const std::lock_guard lock(fMutex);
  return fNotices.dropped();
}

} // namespace gk::gateway
