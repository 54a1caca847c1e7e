#pragma once

#include "gk/GKValue.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// How a run log is written, byte by byte: docs/recordings.md.
namespace gk::formats::runlog {

enum class Kind : std::uint8_t {
  Turn = 1,
  Wall = 2,
  Task = 3,
  Key = 4,
  Values = 5,
  Action = 6,
  Start = 7,
  Lost = 8,
  Overlap = 9
};

/// Bits of an entry of the kind `Start`.
constexpr std::uint64_t kWholeBit = 1;
constexpr std::uint64_t kContinuedBit = 2;

/// The first byte of a block: it can be read without those before it.
constexpr std::uint8_t kAnewBit = 1;

/// A value is one byte. Most keys take one of few values, since sensors measure in steps: the byte
/// is then the place of that value among the key's latest different ones.
constexpr std::uint8_t kSlots = 250;
/// A value that is not among them stands among the raw ones, and takes the oldest one's place.
constexpr std::uint8_t kRawFloat = 250;
constexpr std::uint8_t kRawInt = 251;
constexpr std::uint8_t kFalse = 252;
constexpr std::uint8_t kTrue = 253;
constexpr std::uint8_t kRawJson = 254;

/// The latest different values of a key, as writer and reader both know them.
struct LatestValues {
  GK::GKValue::Type type = GK::GKValue::Type::Invalid;
  std::vector<std::uint32_t> bits;
  std::size_t oldest = 0;

  void clear() {
    bits.clear();
    oldest = 0;
  }

  /// A value that is not among them.
  void add(GK::GKValue::Type newType, std::uint32_t newBits) {
    if (type != newType) {
      type = newType;
      clear();
    }
    if (bits.size() < kSlots) {
      bits.push_back(newBits);
    } else {
      bits[oldest] = newBits;
      oldest = (oldest + 1) % kSlots;
    }
  }
};

} // namespace gk::formats::runlog
