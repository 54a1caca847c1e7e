#pragma once

#include "devices/sim/Geometry.h"

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace gk::devices {

/// Where the torso is and how it moves.
struct TorsoState {
  Vector position{};               ///< of its middle, m
  Rotation attitude = kNoRotation; ///< from the torso's frame to the world's
  Vector velocity{};               ///< of the whole robot's centre of mass, m/s
  Vector rotation{};               ///< about the world's axes, rad/s
};

enum class Side : std::size_t { Left, Right };
inline constexpr std::array kSides = {Side::Left, Side::Right};

/// Force cells of a foot, in the order of `Physics::cellForce`.
enum class Cell : std::size_t { FrontLeft, FrontRight, RearLeft, RearRight };
inline constexpr std::size_t kCells = 4;

/// The robot's body and the things around it, moved by a physics engine.
///
/// Joints are counted as `jointNames` does. Deterministic: the same calls give the same numbers on
/// the same machine. For one thread.
class Physics {
public:
  /// Simulated time of a step, seconds.
  static constexpr double kStep = 0.005;
  static constexpr double kGravity = 9.81;

  Physics();
  ~Physics();
  Physics(const Physics&) = delete;
  Physics& operator=(const Physics&) = delete;

  /// Puts the robot down at rest: joints at these angles (rad), its lowest part on the floor.
  void place(std::span<const double> angles, const Rotation& attitude);

  /// Lets `kStep` pass.
  void step();

  /// The servo of a joint pulls towards `target` (rad) with at most this share (0 to 1) of its
  /// torque.
  void drive(std::size_t joint, double target, double share);

  double angle(std::size_t joint) const;
  /// Angle of the right hip yaw-pitch, which has no motor of its own.
  double coupledAngle() const;
  /// What the joint's servo exerts, N m, and the most it could.
  double torque(std::size_t joint) const;
  double torqueLimit(std::size_t joint) const;
  /// Smallest and largest angle of a joint, rad.
  std::array<double, 2> range(std::size_t joint) const;

  TorsoState torso() const;
  /// Height of the torso's middle when the robot rests on the floor like this, m.
  double restHeight(std::span<const double> angles, const Rotation& attitude);

  /// Accelerates each part of the robot as if it were rigid: `linear` (m/s^2) and `angular`
  /// (rad/s^2) about its centre of mass. Lasts until the next call.
  void carry(const Vector& linear, const Vector& angular);
  /// A force (N) on the chest. Lasts until the next call.
  void push(const Vector& force);

  /// What the inertial unit measures: m/s^2 and rad/s in the torso's frame. At rest the
  /// acceleration points up.
  Vector acceleration() const;
  Vector rotationRate() const;

  /// Force on a cell along the foot's own upward axis, N.
  double cellForce(Side foot, Cell cell) const;
  /// True while something presses the foot's left or right bumper.
  bool isBumperPressed(Side foot, Side bumper) const;

  /// Distance to the nearest surface in the cone of an ultrasonic emitter that throws the sound
  /// back, m; infinity when there is none.
  double echo(Side emitter) const;
  /// Puts an obstacle ahead, to this side, at this distance from the emitter, m; infinity takes it
  /// away.
  void placeObstacle(Side side, double distance);

  /// Speed of the fastest part of the robot, m/s.
  double speed() const;

private:
  struct Engine;
  std::unique_ptr<Engine> fEngine;
};

} // namespace gk::devices
