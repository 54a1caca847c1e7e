#pragma once

#include "gk/GKTime.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <semaphore>
#include <vector>

namespace GK {

class GKMutex;

/// The right to run. Exactly one thread holds it; the others wait for their own to be released.
class GKBaton {
public:
  explicit GKBaton(std::optional<std::uint64_t> number) : task(number) {}

  void release() { fRight.release(); }
  void acquire() { fRight.acquire(); }

  /// Who it belongs to, as turns tell it; nothing for a task that a schedule does not know.
  const std::optional<std::uint64_t> task;

private:
  std::binary_semaphore fRight{0};
};

/// Where a sleeping task stands in the queue: by due time, then by who fell asleep first.
struct GKPlace {
  GKMicros due;
  std::uint64_t order;
  GKBaton* baton;

  /// For a heap with the earliest on top.
  friend bool operator<(const GKPlace& left, const GKPlace& right) {
    return left.due != right.due ? left.due > right.due : left.order > right.order;
  }
};

/// Who sleeps and who waits for a lock on a virtual clock. Touched by the holder of the baton only.
class GKSleepers {
public:
  bool isEmpty() const noexcept { return fPlaces.empty(); }
  bool isAnyLockWaitedFor() const noexcept { return !fLockWaiters.empty(); }

  /// When the first one is due. There is one.
  GKMicros firstDue() const { return fPlaces.front().due; }

  void add(const GKPlace& place) {
    fPlaces.push_back(place);
    std::push_heap(fPlaces.begin(), fPlaces.end());
  }

  GKBaton* takeFirst() {
    std::pop_heap(fPlaces.begin(), fPlaces.end());
    GKBaton* first = fPlaces.back().baton;
    fPlaces.pop_back();
    return first;
  }

  /// The first one, due by `time`, that no turn of a schedule will ever be for; null if there is
  /// none.
  const GKPlace* firstUnknown(GKMicros time) const {
    const auto later = [](const GKPlace& left, const GKPlace& right) {
      const bool isLeftKnown = left.baton->task.has_value();
      return isLeftKnown != right.baton->task.has_value() ? isLeftKnown : left < right;
    };
    const auto first = std::max_element(fPlaces.begin(), fPlaces.end(), later);
    const bool isThere = first != fPlaces.end() && !first->baton->task && first->due <= time;
    return isThere ? &*first : nullptr;
  }

  /// `place`: one of the places here.
  GKBaton* take(const GKPlace* place) {
    GKBaton* baton = place->baton;
    fPlaces.erase(fPlaces.begin() + (place - fPlaces.data()));
    std::make_heap(fPlaces.begin(), fPlaces.end());
    return baton;
  }

  /// The task of this number, whether it sleeps or waits for a lock; null if it does neither.
  GKBaton* takeTask(std::uint64_t task) {
    const auto isIt = [task](const GKPlace& place) { return place.baton->task == task; };
    const auto sleeper = std::find_if(fPlaces.begin(), fPlaces.end(), isIt);
    if (sleeper != fPlaces.end()) {
      return take(&*sleeper);
    }
    const auto waiter =
        std::find_if(fLockWaiters.begin(), fLockWaiters.end(),
                     [task](const LockWaiter& one) { return one.baton->task == task; });
    if (waiter == fLockWaiters.end()) {
      return nullptr;
    }
    GKBaton* next = waiter->baton;
    fLockWaiters.erase(waiter);
    return next;
  }

  /// `order`: when the waiter fell asleep, as in `GKPlace`.
  void addLockWaiter(std::uint64_t order, GKBaton* baton, const GKMutex& mutex) {
    fLockWaiters.push_back({order, baton, &mutex});
  }

  /// Whoever waits for the lock is due now, among all that are due now by when it fell asleep:
  /// behind a sleeper that had lain down before it began to wait.
  void freed(const GKMutex& mutex, GKMicros now) {
    const auto stillWaits = [&mutex](const LockWaiter& waiter) { return waiter.mutex != &mutex; };
    const auto freed = std::partition(fLockWaiters.begin(), fLockWaiters.end(), stillWaits);
    for (auto waiter = freed; waiter != fLockWaiters.end(); ++waiter) {
      add({now, waiter->order, waiter->baton});
    }
    fLockWaiters.erase(freed, fLockWaiters.end());
  }

private:
  struct LockWaiter {
    std::uint64_t order;
    GKBaton* baton;
    const GKMutex* mutex;
  };

  /// A heap with the earliest on top.
  std::vector<GKPlace> fPlaces;
  std::vector<LockWaiter> fLockWaiters;
};

} // namespace GK
