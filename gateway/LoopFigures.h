#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace gk::gateway {

/// How often something took how long.
struct HistogramFigures {
  /// Upper limits in seconds, ascending, and for each the number of values up to it (cumulative).
  std::vector<std::pair<double, std::uint64_t>> buckets;
  std::uint64_t count = 0;
  /// Sum of all values, in seconds.
  double sum = 0;

  /// The smallest limit that a share of all values (0 to 1) stays within, in seconds; infinite when
  /// that is above the last one, 0 without values.
  double quantile(double share) const;
};

/// How well a module's loop keeps its time.
struct LoopFigures {
  std::string module;
  std::uint64_t ticks = 0;
  /// Ticks that took longer than the period.
  std::uint64_t overruns = 0;
  /// Work of a tick.
  HistogramFigures duration;
  /// How much later than due the loop woke up.
  HistogramFigures lateness;
};

/// Gives the figures of all loops of the host at this moment. Called on any thread.
using LoopSource = std::function<std::vector<LoopFigures>()>;

} // namespace gk::gateway
