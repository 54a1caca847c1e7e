#include "platform/services/GKDeliveryQueue.h"

#include <algorithm>
#include <bit>
#include <ctime>
#include <utility>

namespace GK {

void GKParcels::xMakeRoom() {
  if (fBlocks.empty()) {
    xBegin(kFirst);
    return;
  }
  const std::size_t size = fMask + 1;
  const std::uint64_t returned = fReturned.load(std::memory_order_acquire);
  if (returned >= fBegin) {
    // Nothing is on its way any more of what came before.
    fBlocks.erase(fBlocks.begin(), fBlocks.end() - 1);
  }
  fMost = std::max(fMost, fTaken - returned);
  const std::uint64_t limit = std::max(returned, fBegin) + size;
  // Not only when there is none left: to look at what the other side writes costs more than a
  // parcel, and is to be done once for many.
  if (limit - fTaken < (size + 1) / 2) {
    xBegin(2 * size);
    return;
  }
  fLimit = std::min(limit, fTaken + kKept);
  if (++fLooks == kLooks) {
    const std::size_t enough = std::max<std::size_t>(4 * std::bit_ceil(fMost), kKept);
    if (enough < size) {
      xBegin(enough);
    }
    fLooks = 0;
    fMost = 0;
  }
}

void GKParcels::xBegin(std::size_t size) {
  fBlocks.push_back(std::make_unique<GKParcel[]>(size));
  fPresent = fBlocks.back().get();
  fMask = size - 1;
  fBegin = fTaken;
  fLimit = fTaken + size;
  fLooks = 0;
  fMost = 0;
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
