#include "zu/os.h"

#include "gk/GKClock.h"
#include "gk/GKObserver.h"
#include "platform/time/GKTaskPool.h"

namespace zu::os {

namespace {

/// A loop's sleep: tells the observers of the tick before it, and remembers how the sleep ended.
void sleepBetweenTicks(const GK::GKTask& task, GK::GKMicros pause) {
  GK::GKClock& clock = GK::GKClock::instance();
  GK::GKObserverList& observers = GK::GKObserverList::instance();
  if (clock.isVirtual()) {
    // Work takes no time and nobody wakes up late.
    observers.notifyTick(task);
    clock.sleep(pause);
    return;
  }
  GK::GKLoopWake& wake = GK::GKLoopWake::current();
  const GK::GKTickTimes times{wake.time, 0, wake.lateness, pause};
  observers.notifyTick(task, wake.isKnown ? &times : nullptr);
  const GK::GKMicros due = clock.measured() + pause;
  clock.sleep(pause);
  wake = {true, clock.measured(), 0};
  wake.lateness = wake.time - due;
}

} // namespace

void msleep(unsigned int milliseconds) {
  const GK::GKMicros pause = static_cast<GK::GKMicros>(milliseconds) * 1000;
  const GK::GKTask* task = GK::GKTask::current();
  if (task != nullptr && task->isLoop() && !GK::GKObserverList::instance().isEmpty()) {
    sleepBetweenTicks(*task, pause);
  } else {
    GK::GKClock::instance().sleep(pause);
  }
}

int gettimeofday(timeval* now) {
  const GK::GKWallTime time = GK::GKClock::instance().wallTime();
  now->tv_sec = time.seconds;
  now->tv_usec = time.microseconds;
  return 0;
}

} // namespace zu::os
