#pragma once

#include "devices/sim/Harness.h"
#include "devices/sim/Postures.h"
#include "gk/GKMemoryStore.h"

#include <memory>
#include <vector>

namespace gk::devices {

class InertialUnit;
class Physics;

/// The robot's motion layer, as far as it goes: moves from one posture to another and says whether
/// it keeps the robot standing.
///
/// Works through the actuator keys, as any other motion layer would. On its feet the robot moves by
/// itself while the harness steadies it; into and out of all other postures it is lifted, turned
/// and put back on its mark, the middle of the world. `HeadYaw` is left to whoever looks around.
class PosturePlayer {
public:
  // Lengths of the parts of a transition, s. On its feet: moving and letting go. Carried: taking
  // hold, carrying, lowering and letting go.
  static constexpr double kMove = 1.2;
  static constexpr double kTake = 0.25;
  static constexpr double kCarry = 1.4;
  /// Part of the carrying in which the robot is lifted clear before it is turned and bent.
  static constexpr double kLift = 0.4;
  static constexpr double kLower = 0.6;
  static constexpr double kRelease = 0.5;
  /// Share of its weight that is taken off a robot that moves on its feet.
  static constexpr double kSteadyShare = 0.5;
  /// Height of the torso while the robot is carried, m.
  static constexpr double kCarryHeight = 0.38;
  /// The motion layer gives up keeping a robot on its feet that leans by more than this, rad, or
  /// whose servos in the legs are left with less than this share of their torque.
  static constexpr double kLostBalance = 0.7;
  static constexpr double kSoftLegs = 0.2;

  PosturePlayer(std::shared_ptr<GK::GKMemoryStore> store, Physics& physics, Harness& harness);

  /// Finds the keys. After they were published.
  void bind();

  /// Puts the robot down in this posture at once, stiff.
  void place(const Posture& posture);

  /// Begins to move into the posture, from wherever the robot is.
  void order(const Posture& posture);

  /// Goes on by `duration` (s).
  void advance(double duration, const InertialUnit& inertia);

  bool isMoving() const noexcept { return fGoal != nullptr; }

private:
  void xMoveOnFeet();
  void xCarry();
  void xFinish();
  void xSetAngles(double share);
  void xStiffen();
  void xSetStand(bool isStand);
  void xWatchBalance(const InertialUnit& inertia);

  std::shared_ptr<GK::GKMemoryStore> fStore;
  Physics& fPhysics;
  Harness& fHarness;
  std::vector<GK::GKMemoryCell*> fTargets;
  std::vector<GK::GKMemoryCell*> fStiffness;
  GK::GKMemoryCell* fIsStandCell = nullptr;

  /// The posture being moved to, and since when, s.
  const Posture* fGoal = nullptr;
  double fTime = 0;
  bool fIsOnFeet = false;
  bool fIsReleasing = false;
  bool fIsStand = false;
  /// Where the transition began and where it ends.
  std::vector<double> fStartAngles;
  Vector fStartPosition{};
  Rotation fStartAttitude = kNoRotation;
  Vector fEndPosition{};
};

} // namespace gk::devices
