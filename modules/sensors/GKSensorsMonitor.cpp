#include "gk/GKBroker.h"
#include "gk/GKMemoryProxy.h"
#include "modules/sensors/GKSensors.h"
#include "modules/sensors/SensorKeys.h"
#include "modules/shared/Truncate.h"
#include "zu/log.h"

#include <cstdint>
#include <span>

// Part of every tick: allocates only when something is published.
namespace GK {

namespace {

/// Error codes of a motor board that mean high temperature.
constexpr int kFirstHeatError = 33;
constexpr int kLastHeatError = 35;

/// Heat is judged at the end of intervals of this length, counted in ticks of the loop's period.
constexpr int kTemperatureInterval = 20000; // ms
/// Hot ticks that an interval may have without an alarm.
constexpr std::uint64_t kToleratedHotTicks = 100;

/// Shares of a joint's largest stiffness: stiff above the one, off below the other.
constexpr float kStiffShare = 0.95F;
constexpr float kOffShare = 0.05F;

/// Not a number makes a joint intermediate.
BodyStiffness jointStiffness(float max, float value) {
  if (value > kStiffShare * max) {
    return kStiffnessFull;
  }
  return value < kOffShare * max ? kStiffnessOff : kStiffnessIntermediate;
}

} // namespace

void GKSensors::xExtractTemperature() {
  const bool isHot = xFindHotBoard();
  ++fTemperatureTicks;
  if (isHot) {
    ++fHotTicks;
  }
  const int intervalTicks = kTemperatureInterval / fPeriod;
  if (fTemperatureTicks <= static_cast<std::uint64_t>(intervalTicks)) {
    return;
  }

  // An error on the way leaves the counters as they are: the interval is judged again on the next
  // tick.
  if (!fHotReported && fHotTicks > kToleratedHotTicks) {
    xReportHeat();
  } else if (fHotReported && fHotTicks == 0) {
    fHotReported = false;
    zu::log::info(kSensorsLogCategory, "xExtractTemperature")
        << getName() << "No more heat for 20s";
  }
  fTemperatureTicks = 0;
  fHotTicks = 0;
}

/// Looks at all boards in the order of their keys, and keeps the last one that is hot.
bool GKSensors::xFindHotBoard() {
  bool isHot = false;
  for (const auto& [board, place] : fBoardErrorPtrs) {
    const int error = place.load();
    if (error >= kFirstHeatError && error <= kLastHeatError) {
      fHotError = error;
      fHotBoard = board;
      isHot = true;
    }
  }
  return isHot;
}

void GKSensors::xReportHeat() {
  // Kept first: an alarm that fails on its way is not raised twice.
  fHotReported = true;
  const auto memory = getParentBroker()->getSpecialisedProxy<GKMemoryProxy>(GKMemory::kName);
  memory->raiseEvent(strHeatEvent, fHotBoard);
  zu::log::info(kSensorsLogCategory, "xExtractTemperature")
      << getName() << "Motor board " << fHotBoard << " return several high temperature "
      << fHotError;

  const auto& [firstKey, secondKey] = fBoardTemperatureKeys[fHotBoard];
  xLogTemperature(*memory, firstKey);
  if (!secondKey.empty()) {
    xLogTemperature(*memory, secondKey);
  }
}

void GKSensors::xLogTemperature(GKMemoryProxy& memory, const std::string& key) const {
  const int temperature = truncate(memory.getData(key).toFloat());
  zu::log::info(kSensorsLogCategory, "xExtractTemperature")
      << getName() << "Temperature of : " << key << " is: " << temperature;
}

void GKSensors::xExtractStiffness() {
  const int state = xBodyStiffness();
  if (state != fStiffnessState) {
    fMemoryProxy->raiseMicroEvent(szKeyNameEventStiffnessChanged, state);
    // Kept last: a raise that fails is tried again on the next tick.
    fStiffnessState = state;
  }
}

/// Unknown without joints, otherwise what all joints agree on.
int GKSensors::xBodyStiffness() const {
  const std::span maxima(fHardnessMaxPtrs);
  const std::span values(fHardnessValuePtrs);
  std::size_t stiff = 0;
  std::size_t off = 0;
  // Counts instead of branches: this is the longest row of the tick.
  for (std::size_t i = 0; i < maxima.size(); ++i) {
    const BodyStiffness joint = jointStiffness(maxima[i].load(), values[i].load());
    stiff += joint == kStiffnessFull ? 1 : 0;
    off += joint == kStiffnessOff ? 1 : 0;
  }
  if (maxima.empty()) {
    return kStiffnessUnknown;
  }
  if (stiff == maxima.size()) {
    return kStiffnessFull;
  }
  return off == maxima.size() ? kStiffnessOff : kStiffnessIntermediate;
}

} // namespace GK
