#pragma once

#include "gk/GKApi.h"

#include <boost/shared_ptr.hpp>

#include <atomic>
#include <mutex>

namespace GK {

/// The platform's lock. The thread that holds it may take it again.
///
/// A free lock costs an ordinary uncontended lock. A thread that finds it taken waits through the
/// platform's clock, so that under the virtual clock a waiting task counts as asleep.
class GK_API GKMutex {
public:
  static boost::shared_ptr<GKMutex> createGKMutex();

  GKMutex() = default;
  GKMutex(const GKMutex&) = delete;
  GKMutex& operator=(const GKMutex&) = delete;

  void lock();
  void unlock();
  bool tryLock() { return fMutex.try_lock(); }

private:
  friend class GKRealClock;
  friend class GKTurnClock;
  friend class GKVirtualClock;

  std::recursive_mutex fMutex;
  /// Tasks of the virtual clock that wait for this lock.
  std::atomic<int> fWaiting{0};
};

/// Holds a `GKMutex` from construction to destruction. The mutex outlives it.
class GKCriticalSection {
public:
  explicit GKCriticalSection(const boost::shared_ptr<GKMutex>& mutex) : fMutex(*mutex) {
    fMutex.lock();
  }
  ~GKCriticalSection() { fMutex.unlock(); }
  GKCriticalSection(const GKCriticalSection&) = delete;
  GKCriticalSection& operator=(const GKCriticalSection&) = delete;

private:
  GKMutex& fMutex;
};

} // namespace GK
