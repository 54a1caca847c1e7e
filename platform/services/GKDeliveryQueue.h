#pragma once

#include "gk/GKValue.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <semaphore.h>
#include <vector>

namespace GK {

struct GKDeliveryCallback;

/// The size of what two processors cannot write at once without waiting for each other.
constexpr std::size_t kCacheLine = 64;

/// An event on its way to one callback. One cache line: raising and handing over write to
/// neighbours at the same time.
struct alignas(kCacheLine) GKParcel {
  GKParcel* next = nullptr;
  GKDeliveryCallback* callback = nullptr;
  /// `GKDeliveryCallback::ended` when it was raised.
  std::uint32_t subscription = 0;
  GKValue value;
};

/// The parcels of one callback, used in turn. One thread at a time takes them, another one gives
/// them back in the same order; neither ever waits.
class GKParcels {
public:
  GKParcels() = default;
  GKParcels(const GKParcels&) = delete;
  GKParcels& operator=(const GKParcels&) = delete;

  /// A free parcel; allocates only when there have never been so many on their way.
  GKParcel& take() {
    if (fTaken == fLimit) {
      xMakeRoom();
    }
    GKParcel& parcel = fPresent[fTaken++ & fMask];
    // Whoever handed it over last has it in its cache: fetched while the next one is not needed
    // yet, it costs nothing.
    __builtin_prefetch(&fPresent[(fTaken + kAhead) & fMask], 1);
    return parcel;
  }

  /// Gives back the parcel that was taken first.
  void giveBack() noexcept {
    fReturned.store(fReturned.load(std::memory_order_relaxed) + 1, std::memory_order_release);
  }

private:
  static constexpr std::size_t kFirst = 16;
  static constexpr std::size_t kAhead = 3;

  void xMakeRoom();

  // Who takes.
  GKParcel* fPresent = nullptr;
  std::uint64_t fTaken = 0;
  /// Up to here parcels of the present block are known to be free.
  std::uint64_t fLimit = 0;
  /// `fTaken` when the present block was made.
  std::uint64_t fBegin = 0;
  std::uint64_t fMask = 0;
  /// All that there ever were: what is on its way stays where it is. Each twice as large as the one
  /// before.
  std::vector<std::unique_ptr<GKParcel[]>> fBlocks;

  /// Who gives back.
  alignas(kCacheLine) std::atomic<std::uint64_t> fReturned{0};
};

/// What is on its way to one module. Any number of threads put, one task takes; nobody ever waits.
class GKDeliveryQueue {
public:
  /// What whoever has put something is to do for it to be taken.
  enum class Call {
    Nobody, ///< nothing: a task takes already
    Wake,   ///< wake the task that sleeps
    Start   ///< start a task
  };

  GKDeliveryQueue() = default;
  GKDeliveryQueue(const GKDeliveryQueue&) = delete;
  GKDeliveryQueue& operator=(const GKDeliveryQueue&) = delete;

  Call put(GKParcel& parcel) noexcept {
    GKParcel* last = fLast.load(std::memory_order_relaxed);
    Call call = Call::Nobody;
    do {
      call = last == &fAbsent ? Call::Start : last == &fAsleep ? Call::Wake : Call::Nobody;
      parcel.next = call == Call::Nobody ? last : nullptr;
    } while (!fLast.compare_exchange_weak(last, &parcel, std::memory_order_acq_rel,
                                          std::memory_order_relaxed));
    return call;
  }

  // For the task that takes.

  /// Everything that is there, in the order in which it was put; null if nothing is.
  GKParcel* takeAll() noexcept;
  bool isEmpty() const noexcept { return fLast.load(std::memory_order_relaxed) == nullptr; }

  // Each of these tells whether it was so: nothing has been put meanwhile.
  bool end() noexcept { return xTurn(nullptr, &fAbsent); }
  bool fallAsleep() noexcept { return xTurn(nullptr, &fAsleep); }
  bool wakeUp() noexcept { return xTurn(&fAsleep, nullptr); }

private:
  bool xTurn(GKParcel* from, GKParcel* to) noexcept {
    return fLast.compare_exchange_strong(from, to, std::memory_order_acq_rel,
                                         std::memory_order_relaxed);
  }

  // Stand in `fLast` while there is no task, or while it sleeps.
  GKParcel fAbsent;
  GKParcel fAsleep;
  /// What was put last, and behind it what was put before.
  alignas(kCacheLine) std::atomic<GKParcel*> fLast{&fAbsent};
};

/// Wakes who waits for it, now or later.
class GKBell {
public:
  GKBell() { sem_init(&fRings, 0, 0); }
  ~GKBell() { sem_destroy(&fRings); }
  GKBell(const GKBell&) = delete;
  GKBell& operator=(const GKBell&) = delete;

  void ring() noexcept { sem_post(&fRings); }
  void await(std::chrono::milliseconds atMost) noexcept;

private:
  sem_t fRings{};
};

} // namespace GK
