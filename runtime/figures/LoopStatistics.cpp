#include "runtime/figures/LoopStatistics.h"

#include "gk/GKClock.h"

namespace gk::runtime {

void LoopStatistics::onTick(GK::GKMicros, const GK::GKTask& task) {
  const std::lock_guard lock(fMutex);
  ++xReport(task).ticks;
}

void LoopStatistics::onTickTimes(const GK::GKTickTimes& times, const GK::GKTask& task) {
  const GK::GKMicros work = times.end - times.begin;
  const std::lock_guard lock(fMutex);
  LoopReport& report = xReport(task);
  report.overruns += work > times.pause ? 1 : 0;
  report.work.add(work);
  report.lateness.add(times.lateness);
}

std::vector<LoopReport> LoopStatistics::reports() const {
  const std::lock_guard lock(fMutex);
  std::vector<LoopReport> reports;
  reports.reserve(fReports.size());
  for (const auto& [module, report] : fReports) {
    reports.push_back(report);
  }
  return reports;
}

LoopReport& LoopStatistics::xReport(const GK::GKTask& task) {
  const auto [entry, isNew] = fReports.try_emplace(task.module);
  if (isNew) {
    entry->second.module = task.module;
  }
  return entry->second;
}

} // namespace gk::runtime
