#pragma once

#include "devices/sim/Geometry.h"

#include <span>
#include <string_view>
#include <vector>

namespace gk::devices {

/// A posture that the robot can be asked for, as the motion layer knows it.
struct Posture {
  std::string_view name;
  /// The motion layer keeps the robot on its feet in this posture.
  bool isStand = false;
  /// How the torso is held while the robot is put down: turned to the right, then ahead, rad.
  double roll = 0;
  double pitch = 0;
  /// A target for each joint, in the order of `jointNames`, rad.
  std::vector<double> angles;

  Rotation attitude() const { return rotation({0, 1, 0}, pitch) * rotation({1, 0, 0}, roll); }
};

/// All postures, "Stand" first.
std::span<const Posture> postures();

/// The posture of this name, or null.
const Posture* findPosture(std::string_view name);

} // namespace gk::devices
