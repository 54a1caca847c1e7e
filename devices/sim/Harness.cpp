#include "devices/sim/Harness.h"

#include "devices/sim/Physics.h"

#include <algorithm>

namespace gk::devices {

namespace {

Vector limited(const Vector& vector, double most) {
  const double size = length(vector);
  return size > most ? (most / size) * vector : vector;
}

} // namespace

void Harness::guide(const Vector& position, const Rotation& attitude) {
  fPosition = position;
  fAttitude = attitude;
  fIsGuided = true;
}

void Harness::steady(const Rotation& attitude) {
  fAttitude = attitude;
  fIsGuided = false;
}

void Harness::grip(double goal, double duration) {
  fGoal = goal;
  fRate = 1 / duration;
}

void Harness::apply(Physics& physics, double duration) {
  const double change = fRate * duration;
  fShare += std::clamp(fGoal - fShare, -change, change);
  if (fShare <= 0) {
    physics.carry({}, {});
    return;
  }
  constexpr double stiffness = kFrequency * kFrequency;
  constexpr double damping = 2 * kDamping * kFrequency;
  const TorsoState torso = physics.torso();
  Vector linear{};
  if (fIsGuided) {
    linear =
        limited(stiffness * (fPosition - torso.position) - damping * torso.velocity, kMaxLinear);
  }
  const Vector angular = limited(stiffness * rotationVector(fAttitude * inverse(torso.attitude)) -
                                     damping * torso.rotation,
                                 kMaxAngular);
  linear[2] += Physics::kGravity;
  physics.carry(fShare * linear, fShare * angular);
}

} // namespace gk::devices
