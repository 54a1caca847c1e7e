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

  /// A free parcel. Allocates when more than half of those that there are, or for some time next to
  /// none of very many, are on their way.
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
  /// What is kept for good once it has been needed: 64 KiB.
  static constexpr std::size_t kKept = 1024;
  /// So many looks at what is on its way decide whether a smaller block will do.
  static constexpr int kLooks = 8;

  void xMakeRoom();
  void xBegin(std::size_t size);

  // Who takes.
  GKParcel* fPresent = nullptr;
  std::uint64_t fTaken = 0;
  /// Up to here parcels of the present block are known to be free.
  std::uint64_t fLimit = 0;
  /// `fTaken` when the present block was made.
  std::uint64_t fBegin = 0;
  std::uint64_t fMask = 0;
  /// The present block last, and before it those of which something is on its way still.
  std::vector<std::unique_ptr<GKParcel[]>> fBlocks;
  /// Looks since the last decision, and the most that was on its way at one of them.
  int fLooks = 0;
  std::uint64_t fMost = 0;

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
