#include "zu/os.h"

#include "gk/GKClock.h"
#include "gk/GKObserver.h"

namespace zu::os {

void msleep(unsigned int milliseconds) {
  const GK::GKTask* task = GK::GKTask::current();
  GK::GKObserverList& observers = GK::GKObserverList::instance();
  if (task != nullptr && !observers.isEmpty() && task->isLoop()) {
    observers.notifyTick(*task);
  }
  GK::GKClock::instance().sleep(static_cast<GK::GKMicros>(milliseconds) * 1000);
}

int gettimeofday(timeval* now) {
  const GK::GKWallTime time = GK::GKClock::instance().wallTime();
  now->tv_sec = time.seconds;
  now->tv_usec = time.microseconds;
  return 0;
}

} // namespace zu::os
