#include "devices/sim/Servo.h"

#include <algorithm>
#include <array>

namespace gk::devices {

namespace {

constexpr std::int32_t kFirstError = 33;
constexpr std::array kLimits = {Servo::kWarm, Servo::kHot, Servo::kTooHot};

} // namespace

void Servo::advance(double duration, double load, double ambient) {
  fCurrent = load * fStallCurrent;
  const double cooling = (fTemperature - ambient) / kCoolingTime;
  fTemperature += duration * (kStallHeating * load * load - cooling);

  std::int32_t error = 0;
  for (std::size_t i = 0; i < kLimits.size(); ++i) {
    const std::int32_t code = kFirstError + static_cast<std::int32_t>(i);
    const double limit = fError >= code ? kLimits[i] - kHysteresis : kLimits[i];
    if (fTemperature >= limit) {
      error = code;
    }
  }
  fError = error;
}

double Servo::allowedShare() const noexcept {
  return std::clamp((kCutOff - fTemperature) / (kCutOff - kTooHot), 0.0, 1.0);
}

} // namespace gk::devices
