#include "extensions/fleet/EventQueue.h"

#include "gk/GKClock.h"
#include "messages/notices/NoticeSize.h"
#include "messages/notices/Raise.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace gk::fleet {

void EventQueue::onNotice(const GK::GKNotice& notice) {
  const bool isEvent = messages::isRaise(notice);
  if (!isEvent && notice.kind != GK::GKNotice::Kind::Declare) {
    return;
  }
  {
    const std::lock_guard lock(fMutex);
    if (isEvent) {
      fEvents.add({fNextSeq++, notice.kind, notice.time, notice.name, notice.value},
                  messages::bytesOf(notice));
    } else {
      fIsDeclared = true;
    }
    if (std::exchange(fIsAwake, true)) {
      return;
    }
  }
  fWake();
}

EventQueue::Loop& EventQueue::xLoop(const std::string& module) {
  const auto known = std::ranges::find(fLoops, module, &Loop::module);
  return known != fLoops.end() ? *known : fLoops.emplace_back(Loop{module});
}

// On the loop's own thread: allocates nothing once the module is known, and wakes nobody.
void EventQueue::onTick(GK::GKMicros /*time*/, const GK::GKTask& task) {
  const std::lock_guard lock(fMutex);
  ++xLoop(task.module).ticks;
}

void EventQueue::onTickTimes(const GK::GKTickTimes& times, const GK::GKTask& task) {
  const std::lock_guard lock(fMutex);
  Loop& loop = xLoop(task.module);
  const GK::GKMicros work = times.end - times.begin;
  loop.lateness = std::max(loop.lateness, times.lateness);
  loop.work = std::max(loop.work, work);
  loop.overruns += work > times.pause ? 1 : 0;
}

EventQueue::Taken EventQueue::take() {
  Taken taken;
  const std::lock_guard lock(fMutex);
  fEvents.takeAll(taken.events);
  taken.nextSeq = fNextSeq;
  taken.isDeclared = std::exchange(fIsDeclared, false);
  fIsAwake = false;
  return taken;
}

std::vector<EventQueue::Loop> EventQueue::takeLoops() {
  const std::lock_guard lock(fMutex);
  std::vector<Loop> loops = fLoops;
  for (Loop& loop : fLoops) {
    loop.ticks = 0;
    loop.overruns = 0;
    loop.lateness = 0;
    loop.work = 0;
  }
  return loops;
}

} // namespace gk::fleet
