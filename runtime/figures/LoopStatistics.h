#pragma once

#include "gk/GKObserver.h"
#include "gk/GKPriorityMutex.h"
#include "runtime/figures/Histogram.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace gk::runtime {

/// How ticks of one loop went, in real time.
struct TickFigures {
  /// Ticks that worked longer than the pause after them.
  std::uint64_t overruns = 0;
  /// Sum of the pauses that the loop asked for, in microseconds.
  std::int64_t pauses = 0;
  /// How long ticks worked, and how late they began.
  Histogram work;
  Histogram lateness;

  void add(const GK::GKTickTimes& times) noexcept;
  void add(const TickFigures& other) noexcept;
};

/// How well one module's loop keeps its time.
struct LoopReport {
  std::string module;
  std::uint64_t ticks = 0;
  /// Since the start, and of the ticks of the last minute (of its last 50 seconds at least). Empty
  /// in virtual time.
  TickFigures all;
  TickFigures lastMinute;
};

/// Watches the loops of all modules, in memory that does not grow with time. `reports` may be
/// called from any thread.
class LoopStatistics : public GK::GKObserver {
public:
  void onNotice(const GK::GKNotice&) override {}
  void onTick(GK::GKMicros time, const GK::GKTask& task) override;
  void onTickTimes(const GK::GKTickTimes& times, const GK::GKTask& task) override;

  /// All loops seen so far, by the names of their modules.
  std::vector<LoopReport> reports() const;

private:
  static constexpr GK::GKMicros kSlot = 10'000'000;
  static constexpr std::size_t kSlots = 6;

  struct Loop {
    std::uint64_t ticks = 0;
    TickFigures all;
    /// Ticks by the ten seconds in which they ended; the place of each goes round.
    std::array<TickFigures, kSlots> slots;
    std::array<GK::GKMicros, kSlots> numbers{};
  };

  mutable GK::GKPriorityMutex fMutex;
  std::map<std::string, Loop> fLoops;
};

} // namespace gk::runtime
