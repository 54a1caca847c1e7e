#pragma once

#include <atomic>
#include <cstdint>
#include <linux/futex.h>

namespace GK {

/// A `GKPriorityMutex` for the hottest path: not for condition variables, and half as dear while
/// nobody waits. Its holder runs at the priority of who waits, as there.
///
/// The word is what the operating system asks of such locks (futex(2), "Priority-inheritance
/// futexes"): the holder's thread, and a bit by which the system says that somebody waits.
class GKQuickMutex {
public:
  GKQuickMutex() = default;
  GKQuickMutex(const GKQuickMutex&) = delete;
  GKQuickMutex& operator=(const GKQuickMutex&) = delete;

  void lock() {
    if (!try_lock()) {
      xWait();
    }
  }
  bool try_lock() noexcept {
    std::uint32_t nobody = 0;
    return fHolder.compare_exchange_strong(nobody, thisThread(), std::memory_order_acquire,
                                           std::memory_order_relaxed);
  }
  void unlock() noexcept {
    // With the bit of the system, it is to hand the lock over.
    std::uint32_t holder = fHolder.load(std::memory_order_relaxed);
    if ((holder & FUTEX_WAITERS) != 0 ||
        !fHolder.compare_exchange_strong(holder, 0, std::memory_order_release,
                                         std::memory_order_relaxed)) {
      xHandOver();
    }
  }

private:
  static std::uint32_t thisThread() noexcept;
  void xWait();
  void xHandOver() noexcept;

  std::atomic<std::uint32_t> fHolder{0};
};

} // namespace GK
