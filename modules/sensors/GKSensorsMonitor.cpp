#include "gk/GKBroker.h"
#include "gk/GKMemoryProxy.h"
#include "modules/extractor/Truncate.h"
#include "modules/sensors/GKSensors.h"
#include "modules/sensors/SensorKeys.h"
#include "zu/log.h"

#include <atomic>
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
constexpr float kStiffShare = 0.95f;
constexpr float kOffShare = 0.05f;

enum Stiffness : int { kUnknown = -1, kOff = 0, kIntermediate = 1, kStiff = 2 };

/// Fast pointers lead to values that others write meanwhile.
template <class T> T readShared(T* place) {
  return std::atomic_ref<T>(*place).load(std::memory_order_relaxed);
}

/// Not a number makes a joint intermediate.
Stiffness jointStiffness(float max, float value) {
  if (value > kStiffShare * max) {
    return kStiff;
  }
  return value < kOffShare * max ? kOff : kIntermediate;
}

} // namespace

void GKSensors::xExtractTemperature() {
  const bool isHot = xFindHotBoard();
  ++fTemperatureTicks;
  if (isHot) {
    ++fHotTicks;
  }
  const int intervalTicks = kTemperatureInterval / fPeriod.load(std::memory_order_relaxed);
  if (fTemperatureTicks <= static_cast<std::uint64_t>(intervalTicks)) {
    return;
  }

  // An error on the way leaves the counters as they are: the interval is judged again on the next
  // tick.
  if (!fHotReported && fHotTicks > kToleratedHotTicks) {
    xReportHeat();
  } else if (fHotReported && fHotTicks == 0) {
    fHotReported = false;
    zu::log::info(kSensorsCategory, "xExtractTemperature") << getName() << "No more heat for 20s";
  }
  fTemperatureTicks = 0;
  fHotTicks = 0;
}

/// Looks at all boards in the order of their keys, and keeps the last one that is hot.
bool GKSensors::xFindHotBoard() {
  bool isHot = false;
  for (const auto& [board, place] : fBoardErrorPtrs) {
    const int error = readShared(place);
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
  const auto memory = getParentBroker()->getSpecialisedProxy<GKMemoryProxy>("GKMemory");
  memory->raiseEvent(strHeatEvent, fHotBoard);
  zu::log::info(kSensorsCategory, "xExtractTemperature")
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
  zu::log::info(kSensorsCategory, "xExtractTemperature")
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
    const Stiffness joint = jointStiffness(readShared(maxima[i]), readShared(values[i]));
    stiff += joint == kStiff ? 1 : 0;
    off += joint == kOff ? 1 : 0;
  }
  if (maxima.empty()) {
    return kUnknown;
  }
  if (stiff == maxima.size()) {
    return kStiff;
  }
  return off == maxima.size() ? kOff : kIntermediate;
}

} // namespace GK
