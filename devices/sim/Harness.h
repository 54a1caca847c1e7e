#pragma once

#include "devices/sim/Geometry.h"

namespace gk::devices {

class Physics;

/// The hoist's harness: takes a share of every part's weight and guides the robot, as somebody does
/// who carries it. A share of 0 leaves the robot to itself.
class Harness {
public:
  /// Strength of the guidance as the frequency (rad/s) and the damping ratio of a spring.
  static constexpr double kFrequency = 9.0;
  static constexpr double kDamping = 0.9;
  /// Largest acceleration of the guidance, m/s^2 and rad/s^2.
  static constexpr double kMaxLinear = 15.0;
  static constexpr double kMaxAngular = 60.0;

  /// Guides the torso to this place and attitude.
  void guide(const Vector& position, const Rotation& attitude);
  /// Keeps the torso from tipping over, and lets it move otherwise.
  void steady(const Rotation& attitude);

  /// From now on changes the share towards `goal` (0 to 1), evenly, so that all of it takes
  /// `duration` (s).
  void grip(double goal, double duration);
  double share() const noexcept { return fShare; }

  /// Pulls for `duration` (s) from now on.
  void apply(Physics& physics, double duration);

private:
  Vector fPosition{};
  Rotation fAttitude = kNoRotation;
  bool fIsGuided = false;
  double fShare = 0;
  double fGoal = 0;
  double fRate = 0; // 1/s
};

} // namespace gk::devices
