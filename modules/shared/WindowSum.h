#pragma once

#include <boost/circular_buffer.hpp>

#include <cassert>
#include <cstddef>
#include <utility>

namespace GK {

using SampleWindow = boost::circular_buffer<float>;

/// For each of two windows that are filled together: `start` plus all samples, added one after the
/// other, oldest first. Precondition: the windows have the same capacity and have taken the same
/// number of samples since they were empty.
///
/// Each addition waits for the one before it, so the two rows are added side by side. Goes over the
/// plain stretches of memory that a window consists of: its own iterators look for the end of the
/// memory at each step.
inline std::pair<float, float> sumsOf(const SampleWindow& first, const SampleWindow& second,
                                      std::pair<float, float> start) noexcept {
  // Only then do their plain stretches have the same lengths.
  assert(first.array_one().second == second.array_one().second);
  assert(first.array_two().second == second.array_two().second);
  const auto add = [&start](SampleWindow::const_array_range a, SampleWindow::const_array_range b) {
    for (std::size_t i = 0; i < a.second; ++i) {
      start.first += a.first[i];
      start.second += b.first[i];
    }
  };
  add(first.array_one(), second.array_one());
  add(first.array_two(), second.array_two());
  return start;
}

} // namespace GK
