#include "app/run/Realtime.h"

#include "app/session/Complaints.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>

namespace gk::app {

namespace {

/// Priority of the sensor loop: above everything ordinary, below the kernel's own threads.
constexpr int kLoopPriority = 40;

} // namespace

int prepareForRealtime() {
  // Pages stay once they have been used. To have all of every stack from the beginning would cost
  // eight megabytes for each call of a client.
  if (mlockall(MCL_CURRENT | MCL_FUTURE | MCL_ONFAULT) != 0) {
    complain(fmt::format("--realtime: memory cannot be locked ({}); a tick may wait for the disk",
                         std::strerror(errno)),
             Severity::Warning);
  }
  // The present thread only tries it out: its children would inherit the priority.
  const sched_param wanted{kLoopPriority};
  const sched_param ordinary{0};
  const int refused = pthread_setschedparam(pthread_self(), SCHED_FIFO, &wanted);
  if (refused != 0) {
    complain(
        fmt::format("--realtime: no real-time priority ({}); the loop runs like any other thread",
                    std::strerror(refused)),
        Severity::Warning);
    return 0;
  }
  pthread_setschedparam(pthread_self(), SCHED_OTHER, &ordinary);
  return kLoopPriority;
}

} // namespace gk::app
