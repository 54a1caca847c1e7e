#include "gk/GKPriorityMutex.h"

#include <pthread.h>
#include <type_traits>

namespace GK {

namespace {

// The standard's mutexes are a native one each, and do nothing with it when they are made or go:
// it can be made anew, with another protocol.
static_assert(std::is_trivially_destructible_v<std::mutex> &&
              std::is_trivially_destructible_v<std::recursive_mutex>);

void inheritPriority(pthread_mutex_t* mutex, int type) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, type);
  pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
  pthread_mutex_init(mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
}

} // namespace

GKPriorityMutex::GKPriorityMutex() {
  inheritPriority(native_handle(), PTHREAD_MUTEX_NORMAL);
}
GKPriorityMutex::~GKPriorityMutex() {
  pthread_mutex_destroy(native_handle());
}

GKPriorityRecursiveMutex::GKPriorityRecursiveMutex() {
  inheritPriority(native_handle(), PTHREAD_MUTEX_RECURSIVE);
}
GKPriorityRecursiveMutex::~GKPriorityRecursiveMutex() {
  pthread_mutex_destroy(native_handle());
}

} // namespace GK
