#pragma once

#include <bit>
#include <cstdint>
#include <type_traits>

namespace GK {

/// A memory key's value as those see it who know its address (`GKMemory::getDataPtr`): what they
/// read and write without a look-up and without a lock, at the cost of a plain access.
///
/// `T` is float or int, whatever the key holds: the four bytes are taken as they are. Others may
/// read and write the same place at any time, from any thread. The address outlives the place.
template <class T> class GKMemoryPlace {
  static_assert(std::is_same_v<T, float> || std::is_same_v<T, std::int32_t>);

public:
  /// Nowhere: not to be read nor written.
  GKMemoryPlace() = default;
  explicit GKMemoryPlace(void* address) noexcept : fBits(static_cast<Bits*>(address)) {}

  T load() const noexcept { return std::bit_cast<T>(__atomic_load_n(fBits, __ATOMIC_RELAXED)); }
  void store(T value) const noexcept {
    __atomic_store_n(fBits, std::bit_cast<std::uint32_t>(value), __ATOMIC_RELAXED);
  }

private:
  /// Bytes that other code may take for something else: std::atomic_ref knows no such type.
  using Bits __attribute__((may_alias)) = std::uint32_t;

  Bits* fBits = nullptr;
};

} // namespace GK
