#include "devices/sim/PosturePlayer.h"

#include "devices/sim/Cells.h"
#include "devices/sim/InertialUnit.h"
#include "devices/sim/Physics.h"
#include "messages/keys/DeviceKeys.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace gk::devices {

namespace {

/// The robot is put down this much below the height at which it touches the floor, m.
constexpr double kPress = 0.002;

/// From 0 to 1 with rest at both ends: the smoothest way there. T. Flash, N. Hogan, "The
/// coordination of arm movements", 1985.
double smooth(double time, double length) {
  const double share = std::clamp(time / length, 0.0, 1.0);
  return share * share * share * (10 + share * (-15 + share * 6));
}

/// Not part of any posture.
constexpr std::string_view kFreeJoint = "HeadYaw";

bool isOfLeg(std::string_view joint) {
  return joint.find("Knee") != joint.npos || joint.find("Hip") != joint.npos ||
         joint.find("Ankle") != joint.npos;
}

} // namespace

PosturePlayer::PosturePlayer(std::shared_ptr<GK::GKMemoryStore> store, Physics& physics,
                             Harness& harness)
    : fStore(std::move(store)), fPhysics(physics), fHarness(harness) {}

void PosturePlayer::bind() {
  for (const std::string_view joint : messages::jointNames()) {
    fTargets.push_back(fStore->find(messages::deviceKey(joint, "/Position/Actuator/Value")));
    fStiffness.push_back(fStore->find(messages::deviceKey(joint, "/Hardness/Actuator/Value")));
  }
  fIsStandCell = fStore->find(messages::kIsStandKey);
}

void PosturePlayer::place(const Posture& posture) {
  fPhysics.place(posture.angles, posture.attitude());
  fStartAngles = posture.angles;
  fGoal = &posture;
  xStiffen();
  xSetAngles(1);
  xFinish();
}

void PosturePlayer::order(const Posture& posture) {
  fIsOnFeet = fIsStand && posture.isStand && !isMoving();
  fGoal = &posture;
  fTime = 0;
  fIsReleasing = false;
  const TorsoState torso = fPhysics.torso();
  fStartPosition = torso.position;
  fStartAttitude = torso.attitude;
  fEndPosition = {0, 0, fPhysics.restHeight(posture.angles, posture.attitude()) - kPress};
  fStartAngles.clear();
  for (std::size_t joint = 0; joint < fTargets.size(); ++joint) {
    fStartAngles.push_back(fPhysics.angle(joint));
  }
  xStiffen();
  if (fIsOnFeet) {
    fHarness.grip(kSteadyShare, kTake);
  } else {
    xSetStand(false);
    fHarness.grip(1, kTake);
  }
}

void PosturePlayer::advance(double duration, const InertialUnit& inertia) {
  if (fGoal == nullptr) {
    xWatchBalance(inertia);
    return;
  }
  fTime += duration;
  if (fIsOnFeet) {
    xMoveOnFeet();
  } else {
    xCarry();
  }
}

void PosturePlayer::xMoveOnFeet() {
  const double share = smooth(fTime, kMove);
  xSetAngles(share);
  fHarness.steady(between(fStartAttitude, fGoal->attitude(), share));
  if (fTime >= kMove && !std::exchange(fIsReleasing, true)) {
    fHarness.grip(0, kRelease);
  }
  if (fTime >= kMove + kRelease) {
    xFinish();
  }
}

void PosturePlayer::xCarry() {
  constexpr double carried = kTake + kCarry;
  constexpr double lowered = carried + kLower;
  const double lifted = smooth(fTime - kTake, kCarry - kLift);
  const double share = smooth(fTime - kTake - kLift, kCarry - kLift);
  xSetAngles(share);
  Vector place = fStartPosition + lifted * (Vector{0, 0, kCarryHeight} - fStartPosition);
  if (fTime > carried) {
    place = place + smooth(fTime - carried, kLower) * (fEndPosition - place);
  }
  fHarness.guide(place, between(fStartAttitude, fGoal->attitude(), share));
  if (fTime >= lowered && !std::exchange(fIsReleasing, true)) {
    fHarness.grip(0, kRelease);
  }
  if (fTime >= lowered + kRelease) {
    xFinish();
  }
}

void PosturePlayer::xFinish() {
  xSetStand(fGoal->isStand);
  fGoal = nullptr;
}

void PosturePlayer::xSetAngles(double share) {
  for (std::size_t joint = 0; joint < fTargets.size(); ++joint) {
    if (messages::jointNames()[joint] == kFreeJoint) {
      continue;
    }
    const double start = fStartAngles[joint];
    put(fTargets[joint], start + share * (fGoal->angles[joint] - start));
  }
}

void PosturePlayer::xStiffen() {
  for (GK::GKMemoryCell* stiffness : fStiffness) {
    put(stiffness, 1.0);
  }
}

void PosturePlayer::xSetStand(bool isStand) {
  fIsStand = isStand;
  put(fIsStandCell, isStand ? 1.0 : 0.0);
}

void PosturePlayer::xWatchBalance(const InertialUnit& inertia) {
  if (!fIsStand) {
    return;
  }
  const double lean = std::max(std::abs(inertia.angleX()), std::abs(inertia.angleY()));
  bool isSoft = false;
  for (std::size_t joint = 0; joint < fStiffness.size(); ++joint) {
    isSoft = isSoft || (isOfLeg(messages::jointNames()[joint]) &&
                        numberIn(fStiffness[joint], 1.0) < kSoftLegs);
  }
  if (lean > kLostBalance || isSoft) {
    xSetStand(false);
  }
}

} // namespace gk::devices
