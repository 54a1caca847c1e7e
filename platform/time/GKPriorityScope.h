#pragma once

#include <pthread.h>
#include <sched.h>

namespace GK {

/// Gives the calling thread a priority under SCHED_FIFO until it goes out of scope. Does nothing
/// for priority 0, and where it is not permitted.
class GKPriorityScope {
public:
  explicit GKPriorityScope(int priority) {
    if (priority > 0) {
      pthread_getschedparam(pthread_self(), &fPolicy, &fParameters);
      const sched_param wanted{priority};
      fIsRaised = pthread_setschedparam(pthread_self(), SCHED_FIFO, &wanted) == 0;
    }
  }
  ~GKPriorityScope() {
    if (fIsRaised) {
      pthread_setschedparam(pthread_self(), fPolicy, &fParameters);
    }
  }
  GKPriorityScope(const GKPriorityScope&) = delete;
  GKPriorityScope& operator=(const GKPriorityScope&) = delete;

private:
  bool fIsRaised = false;
  int fPolicy = SCHED_OTHER;
  sched_param fParameters{};
};

} // namespace GK
