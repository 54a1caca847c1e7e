#include "devices/sim/InertialUnit.h"

#include "devices/sim/Physics.h"

#include <algorithm>

namespace gk::devices {

void InertialUnit::align(const Vector& acceleration) {
  fUp = (1 / length(acceleration)) * acceleration;
}

void InertialUnit::measure(const Vector& acceleration, const Vector& rotationRate,
                           double duration) {
  fUp = fUp - duration * cross(rotationRate, fUp);
  const double strength = length(acceleration);
  if (std::abs(strength / Physics::kGravity - 1) < kTolerance) {
    const Vector measured = (1 / strength) * acceleration;
    fUp = fUp + (duration / kCorrectionTime) * (measured - fUp);
  }
  fUp = (1 / length(fUp)) * fUp;
}

double InertialUnit::xStretch() const noexcept {
  const double sine = std::hypot(fUp[0], fUp[1]);
  return sine < 1e-9 ? 1.0 : std::atan2(sine, fUp[2]) / sine;
}

double InertialUnit::angleX() const noexcept {
  return xStretch() * fUp[1];
}

double InertialUnit::angleY() const noexcept {
  return -xStretch() * fUp[0];
}

} // namespace gk::devices
