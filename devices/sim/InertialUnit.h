#pragma once

#include "devices/sim/Geometry.h"

namespace gk::devices {

/// Finds out from acceleration and rotation rate which way is up, as the firmware of an inertial
/// unit does: the gyroscope tells quick turns, gravity slowly puts right what adds up.
///
/// A complementary filter on the upward direction; see R. Mahony, T. Hamel, J.-M. Pflimlin,
/// "Nonlinear complementary filters on the special orthogonal group", 2008.
class InertialUnit {
public:
  /// Time in which a wrong direction is put right to 37 %, s.
  static constexpr double kCorrectionTime = 0.4;
  /// Accelerations that differ from gravity by more than this share tell nothing about it.
  static constexpr double kTolerance = 0.25;

  /// One measurement: m/s^2 and rad/s in the body's frame, `duration` (s) after the one before.
  void measure(const Vector& acceleration, const Vector& rotationRate, double duration);

  /// Takes the direction of an acceleration at rest as it is.
  void align(const Vector& acceleration);

  /// Inclination about the body's X axis (positive to the right) and Y axis (positive ahead), rad:
  /// the two components of the one turn that tilts the body from upright into its attitude, each
  /// from -pi to pi.
  double angleX() const noexcept;
  double angleY() const noexcept;

private:
  /// Tilt divided by its sine.
  double xStretch() const noexcept;

  /// The world's upward direction in the body's frame.
  Vector fUp = {0, 0, 1};
};

} // namespace gk::devices
