#include "runtime/figures/LoopStatistics.h"

#include "gk/GKClock.h"

namespace gk::runtime {

void TickFigures::add(const GK::GKTickTimes& times) noexcept {
  const GK::GKMicros duration = times.end - times.begin;
  overruns += duration > times.pause ? 1 : 0;
  pauses += times.pause;
  work.add(duration);
  lateness.add(times.lateness);
}

void TickFigures::add(const TickFigures& other) noexcept {
  overruns += other.overruns;
  pauses += other.pauses;
  work.add(other.work);
  lateness.add(other.lateness);
}

void LoopStatistics::onTick(GK::GKMicros, const GK::GKTask& task) {
  const std::lock_guard lock(fMutex);
  ++fLoops[task.module].ticks;
}

void LoopStatistics::onTickTimes(const GK::GKTickTimes& times, const GK::GKTask& task) {
  const GK::GKMicros number = times.end / kSlot;
  const auto place = static_cast<std::size_t>(number) % kSlots;
  const std::lock_guard lock(fMutex);
  Loop& loop = fLoops[task.module];
  loop.all.add(times);
  if (loop.numbers[place] != number) {
    loop.numbers[place] = number;
    loop.slots[place] = {};
  }
  loop.slots[place].add(times);
}

std::vector<LoopReport> LoopStatistics::reports() const {
  const GK::GKMicros now = GK::GKClock::instance().elapsed() / kSlot;
  const std::lock_guard lock(fMutex);
  std::vector<LoopReport> reports;
  reports.reserve(fLoops.size());
  for (const auto& [module, loop] : fLoops) {
    reports.push_back({module, loop.ticks, loop.all, {}});
    LoopReport& report = reports.back();
    for (std::size_t place = 0; place < kSlots; ++place) {
      if (now - loop.numbers[place] < static_cast<GK::GKMicros>(kSlots)) {
        report.lastMinute.add(loop.slots[place]);
      }
    }
  }
  return reports;
}

} // namespace gk::runtime
