#pragma once

#include "gk/GKApi.h"
#include "gk/GKPriorityMutex.h"

#include <boost/shared_ptr.hpp>

#include <atomic>

namespace GK {

/// The platform's lock. The thread that holds it may take it again.
///
/// A free lock costs an ordinary uncontended lock. A thread that finds it taken waits through the
/// platform's clock, so that under the virtual clock a waiting task counts as asleep. In real time
/// the holder inherits the priority of who waits.
class GK_API GKMutex {
public:
  static boost::shared_ptr<GKMutex> createGKMutex();

  GKMutex() = default;
  GKMutex(const GKMutex&) = delete;
  GKMutex& operator=(const GKMutex&) = delete;

  void lock();
  void unlock();
  bool tryLock() { return fMutex.try_lock(); }

  /// For clocks: waits for the lock as the operating system has it, whatever the time is.
  void lockOutright() { fMutex.lock(); }

  /// For clocks: somebody waits for the lock in the clock's own way for as long as this lives.
  /// `unlock` tells the clock meanwhile.
  class Waiter {
  public:
    explicit Waiter(GKMutex& mutex) noexcept : fMutex(mutex) {
      fMutex.fWaiting.fetch_add(1, std::memory_order_relaxed);
    }
    ~Waiter() { fMutex.fWaiting.fetch_sub(1, std::memory_order_relaxed); }
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

  private:
    GKMutex& fMutex;
  };

private:
  GKPriorityRecursiveMutex fMutex;
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
