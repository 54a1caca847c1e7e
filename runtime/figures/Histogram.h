#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace gk::runtime {

/// Counts how often which duration occurred, in constant memory: exact up to 15 microseconds, then
/// in steps of an eighth of the duration's power of two. A plain value; not synchronised.
///
/// The layout follows G. Tene's HdrHistogram.
class Histogram {
public:
  /// `micros`: negative ones count as 0, those beyond an hour as an hour.
  void add(std::int64_t micros) noexcept;
  /// All durations of another one as well.
  void add(const Histogram& other) noexcept;

  std::uint64_t count() const noexcept { return fCount; }
  /// Of all durations, in microseconds.
  std::int64_t sum() const noexcept { return fSum; }
  /// The longest one, in microseconds; 0 when there is none.
  std::int64_t max() const noexcept { return fMax; }

  /// The duration that a share of all (0 to 1) does not exceed, in microseconds: at most an eighth
  /// too long, never too short, and never longer than `max`. 0 when there is none.
  std::int64_t quantile(double share) const noexcept;

  /// How many were not longer than `micros`, rounded up to the end of a step.
  std::uint64_t countUpTo(std::int64_t micros) const noexcept;

private:
  static constexpr unsigned int kExact = 16;
  static constexpr unsigned int kStepsPerPower = 8;
  static constexpr std::int64_t kLongest = 3'600'000'000;
  /// Powers of two from 16 to 2^31, the one of `kLongest`.
  static constexpr std::size_t kSteps = kExact + 28 * kStepsPerPower;

  static std::size_t xStepOf(std::int64_t micros) noexcept;
  static std::int64_t xEndOf(std::size_t step) noexcept;

  std::array<std::uint64_t, kSteps> fCounts{};
  std::uint64_t fCount = 0;
  std::int64_t fSum = 0;
  std::int64_t fMax = 0;
};

} // namespace gk::runtime
