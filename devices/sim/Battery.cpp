#include "devices/sim/Battery.h"

#include <algorithm>
#include <cmath>

namespace gk::devices {

void Battery::advance(double duration, double motors, bool isPlugged) {
  const double load = kBoardCurrent + motors;
  const bool wasFull = (fStatus & kFullCharged) != 0;
  const bool isFull = isPlugged && (wasFull || fCharge >= kFull);
  if (!isPlugged) {
    fCurrent = -load;
  } else {
    // A full battery is only spared; what the charger cannot give is drawn from it all the same.
    fCurrent = std::min(isFull ? 0.0 : kChargeLimit, kChargerCurrent - load);
  }
  fCharge = std::clamp(fCharge + fCurrent * duration / kCapacity, 0.0, 1.0);
  // Told by the charger's state, not by the current: servos may draw more for a moment.
  fStatus = !isPlugged ? kDischarging : isFull ? kFullCharged : kCharging;
  const double rest = kEmptyVoltage + fCharge * (kFullVoltage - kEmptyVoltage);
  const double voltage = rest + fCurrent * kCellResistance;
  fVoltage += (voltage - fVoltage) * std::min(1.0, duration / kVoltageSmoothing);
}

std::int32_t Battery::cellVoltage() const noexcept {
  return static_cast<std::int32_t>(std::lround(fVoltage / kVoltageStep));
}

} // namespace gk::devices
