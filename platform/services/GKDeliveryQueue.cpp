#include "platform/services/GKDeliveryQueue.h"

#include <algorithm>
#include <ctime>
#include <utility>

namespace GK {

void GKParcels::xMakeRoom() {
  const std::uint64_t size = fBlocks.empty() ? 0 : fMask + 1;
  const std::uint64_t returned = fReturned.load(std::memory_order_acquire);
  fLimit = std::max(returned, fBegin) + size;
  // Not only when there is none left: to look at what the other side writes costs more than a
  // parcel, and is to be done once for many.
  if (fLimit - fTaken < (size + 1) / 2 || size == 0) {
    const std::uint64_t larger = std::max<std::uint64_t>(2 * size, kFirst);
    fBlocks.push_back(std::make_unique<GKParcel[]>(larger));
    fPresent = fBlocks.back().get();
    fMask = larger - 1;
    fBegin = fTaken;
    fLimit = fTaken + larger;
  }
}

GKParcel* GKDeliveryQueue::takeAll() noexcept {
  if (isEmpty()) {
    return nullptr;
  }
  GKParcel* parcel = fLast.exchange(nullptr, std::memory_order_acquire);
  GKParcel* first = nullptr;
  while (parcel != nullptr) {
    GKParcel* before = std::exchange(parcel->next, first);
    first = std::exchange(parcel, before);
  }
  return first;
}

void GKBell::await(std::chrono::milliseconds atMost) noexcept {
  // The steady clock is the system's monotonic one.
  const auto end = std::chrono::steady_clock::now().time_since_epoch() + atMost;
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(end);
  const timespec until{seconds.count(), std::chrono::nanoseconds(end - seconds).count()};
  sem_clockwait(&fRings, CLOCK_MONOTONIC, &until);
}

} // namespace GK
