#pragma once

#include "gk/GKValue.h"

#include <cstdint>
#include <memory>
#include <span>

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

/// The latest different values of a key, as writer and reader both know them. What both do with
/// every value of a run is short: no more than a look into the place.
class LatestValues {
public:
  GK::GKValue::Type type() const noexcept { return fType; }
  std::span<const std::uint32_t> bits() const noexcept { return {fBits.get(), fCount}; }

  bool isTaken(std::uint8_t place) const noexcept { return place < fCount; }
  /// In a place that is taken.
  std::uint32_t bitsAt(std::uint8_t place) const noexcept { return fBits[place]; }

  void clear() noexcept { fCount = fOldest = 0; }

  /// A value that is not among them.
  void add(GK::GKValue::Type type, std::uint32_t bits) {
    if (fType != type) {
      fType = type;
      clear();
    }
    if (fBits == nullptr) {
      // Few of the keys that a log may have ever get a value.
      fBits = std::make_unique_for_overwrite<std::uint32_t[]>(kSlots);
    }
    if (fCount < kSlots) {
      fBits[fCount++] = bits;
    } else {
      fBits[fOldest] = bits;
      fOldest = static_cast<std::uint8_t>((fOldest + 1) % kSlots);
    }
  }

private:
  std::unique_ptr<std::uint32_t[]> fBits;
  GK::GKValue::Type fType = GK::GKValue::Type::Invalid;
  std::uint8_t fCount = 0;
  std::uint8_t fOldest = 0;
};

} // namespace gk::formats::runlog
