#pragma once

#include "gk/GKObserver.h"
#include "gk/GKPriorityMutex.h"
#include "runtime/figures/Histogram.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace gk::runtime {

/// How well one module's loop keeps its time.
struct LoopReport {
  std::string module;
  std::uint64_t ticks = 0;
  /// Ticks that worked longer than the pause after them.
  std::uint64_t overruns = 0;
  /// How long ticks worked, and how late they began. Empty in virtual time.
  Histogram work;
  Histogram lateness;
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
  LoopReport& xReport(const GK::GKTask& task);

  mutable GK::GKPriorityMutex fMutex;
  std::map<std::string, LoopReport> fReports;
};

} // namespace gk::runtime
