#include "runtime/figures/Histogram.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace gk::runtime {

void Histogram::add(std::int64_t micros) noexcept {
  micros = std::clamp<std::int64_t>(micros, 0, kLongest);
  ++fCounts[xStepOf(micros)];
  ++fCount;
  fSum += micros;
  fMax = std::max(fMax, micros);
}

void Histogram::add(const Histogram& other) noexcept {
  for (std::size_t step = 0; step < kSteps; ++step) {
    fCounts[step] += other.fCounts[step];
  }
  fCount += other.fCount;
  fSum += other.fSum;
  fMax = std::max(fMax, other.fMax);
}

std::int64_t Histogram::quantile(double share) const noexcept {
  const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(fCount)));
  std::uint64_t seen = 0;
  for (std::size_t step = 0; step < kSteps; ++step) {
    seen += fCounts[step];
    if (seen > 0 && seen >= wanted) {
      return std::min(xEndOf(step), fMax);
    }
  }
  return 0;
}

std::uint64_t Histogram::countUpTo(std::int64_t micros) const noexcept {
  if (micros < 0) {
    return 0;
  }
  const std::size_t last = xStepOf(std::min(micros, kLongest));
  std::uint64_t count = 0;
  for (std::size_t step = 0; step <= last; ++step) {
    count += fCounts[step];
  }
  return count;
}

std::size_t Histogram::xStepOf(std::int64_t micros) noexcept {
  const auto value = static_cast<std::uint64_t>(micros);
  if (value < kExact) {
    return value;
  }
  // 16 to 31 are power 4, in steps of 2, and so on.
  const auto power = static_cast<unsigned int>(std::bit_width(value)) - 1;
  const std::uint64_t part = (value >> (power - 3)) - kStepsPerPower;
  return kExact + (power - 4) * kStepsPerPower + part;
}

/// The longest duration that belongs to the step.
std::int64_t Histogram::xEndOf(std::size_t step) noexcept {
  if (step < kExact) {
    return static_cast<std::int64_t>(step);
  }
  const std::size_t power = 4 + (step - kExact) / kStepsPerPower;
  const std::uint64_t part = (step - kExact) % kStepsPerPower + kStepsPerPower + 1;
  return static_cast<std::int64_t>((part << (power - 3)) - 1);
}

} // namespace gk::runtime
