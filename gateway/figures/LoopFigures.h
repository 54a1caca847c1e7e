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

  /// What half, 99 % and 99.9 % of all values do not exceed, in seconds; infinite where that is not
  /// known, 0 without values.
  double p50 = 0;
  double p99 = 0;
  double p999 = 0;
};

/// How some ticks of a loop went.
struct TickFigures {
  /// Ticks that took longer than the period.
  std::uint64_t overruns = 0;
  /// Work of a tick.
  HistogramFigures duration;
  /// How much later than due the loop woke up.
  HistogramFigures lateness;
  /// Ticks a second as they came while the loop ran, and as it asked for; 0 without ticks.
  double rate = 0;
  double askedRate = 0;
};

/// How well a module's loop keeps its time.
struct LoopFigures {
  std::string module;
  std::uint64_t ticks = 0;
  /// Since the start, and of the last minute.
  TickFigures all;
  TickFigures lastMinute;
};

/// Gives the figures of all loops of the host at this moment. Called on any thread.
using LoopSource = std::function<std::vector<LoopFigures>()>;

} // namespace gk::gateway
