#include "modules/robotpose/GKRobotPose.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

// From one sample of the sensors to one pose. Nothing here keeps state between calls.

namespace GK {

namespace {

/// Slots of a sample. Angles in radian; a contact or a flag is 0.0 for no, anything else for yes.
enum Slot : std::size_t {
  AngleX,
  AngleY,
  LeftHip,
  RightHip,
  LeftKnee,
  RightKnee,
  LeftAnkle,
  RightAnkle,
  LeftContact,
  RightContact,
  IsStand
};

constexpr float radians(double degrees) {
  return static_cast<float>(degrees * std::numbers::pi / 180.0);
}

/// A standing robot with its knees bent more, and its ankles less, than this crouches.
constexpr float kCrouchKnee = radians(110);
constexpr float kCrouchAnkle = radians(-40);
/// A robot inclined less than this about both axes is near upright.
constexpr float kUpright = radians(45);
/// A robot inclined more than this about either axis stands on its head.
constexpr float kHeadBack = radians(130);

/// What a difference of each component of a leg posture is measured against.
constexpr std::array kNormaliser = {radians(128), radians(125), radians(120), radians(120)};

/// Sum of normalised differences up to which a posture matches: a quarter for each component.
constexpr float kMatchDistance = 1.0F;
constexpr float kNoDistance = 1000.0F;

constexpr const char* kUnknown = "Unknown";

/// Sum of the normalised differences of all components. Differences in single precision, the rest
/// in double, rounded after each component.
template <std::size_t N>
float distanceBetween(const std::array<float, N>& measured, const std::array<float, N>& reference) {
  static_assert(kNormaliser.size() == N);
  float sum = 0.0F;
  for (std::size_t i = 0; i < N; ++i) {
    const float difference = std::fabs(measured[i] - reference[i]);
    sum = static_cast<float>(double{sum} + double{difference} / double{kNormaliser[i]});
  }
  return sum;
}

} // namespace

std::vector<std::string> GKRobotPose::xOfficialNames() {
  constexpr std::array names = {kUnknown, "Stand", "Sit",  "Crouch", "Knee",    "Frog",
                                "Back",   "Belly", "Left", "Right",  "HeadBack"};
  static_assert(names.size() == kPoseCount);
  return {names.begin(), names.end()};
}

void GKRobotPose::xCreateMapOfPose() {
  const auto insert = [this](const std::string& name, double hip, double knee, double ankle,
                             double inclination) {
    std::string official = name;
    xConvertRefPoseToOfficialPose(official);
    const LegPosture posture = {radians(hip), radians(knee), radians(ankle), radians(inclination)};
    fReferencePoses.insert({name, {posture, xPoseOf(official)}});
  };
  // Degrees: hip, knee and ankle pitch, inclination about Y.
  insert("Sit1", -100, 0, 0, -20);
  insert("Sit2", -90, 120, 30, -10);
  insert("Sit3", -90, 50, 50, -10);
  insert("Sit4", -80, 0, -50, 20);
  insert("Frog", -100, 120, -70, 50);
  insert("Knee1", -20, 120, 50, 0);
  insert("Knee2", 20, 100, 50, -60);

  for (const char* name : {"Sit1", "Sit2", "Sit3", "Sit4", "Knee1", "Knee2"}) {
    fCandidatesInTheAir.push_back(&fReferencePoses.at(name));
  }
  for (const char* name : {"Sit2", "Sit3", "Sit4", "Frog", "Knee2"}) {
    fCandidatesOnTheGround.push_back(&fReferencePoses.at(name));
  }
}

// Hot path: allocates nothing.
GKRobotPose::Pose GKRobotPose::xClassify(Sample sample) const noexcept {
  // The leg that bears the weight counts; with both feet on the ground or none, the mean.
  const bool left = sample[LeftContact] != 0.0F;
  const bool right = sample[RightContact] != 0.0F;
  const auto pitch = [&](Slot leftSlot, Slot rightSlot) {
    if (left == right) {
      return (sample[leftSlot] + sample[rightSlot]) * 0.5F;
    }
    return left ? sample[leftSlot] : sample[rightSlot];
  };
  const LegPosture legs = {pitch(LeftHip, RightHip), pitch(LeftKnee, RightKnee),
                           pitch(LeftAnkle, RightAnkle), sample[AngleY]};

  if (sample[IsStand] != 0.0F) {
    return xClassifyStanding(legs);
  }
  // Written so that an inclination that is NaN is no upright one.
  if (!(std::fabs(sample[AngleY]) < kUpright && std::fabs(sample[AngleX]) < kUpright)) {
    return xClassifyLying(sample[AngleX], sample[AngleY]);
  }
  // Unlike above, a right contact that is NaN is none here: what cannot be told apart by one foot
  // is looked for among the poses in the air.
  const bool inTheAir = !left && (!right || std::isnan(sample[RightContact]));
  return xFindNearest(legs, inTheAir ? fCandidatesInTheAir : fCandidatesOnTheGround);
}

GKRobotPose::Pose GKRobotPose::xClassifyStanding(const LegPosture& legs) noexcept {
  const auto [hip, knee, ankle, inclination] = legs;
  return knee > kCrouchKnee && ankle < kCrouchAnkle ? Pose::Crouch : Pose::Stand;
}

GKRobotPose::Pose GKRobotPose::xClassifyLying(float angleX, float angleY) noexcept {
  const float x = std::fabs(angleX);
  const float y = std::fabs(angleY);
  if (x > kHeadBack || y > kHeadBack) {
    return Pose::HeadBack;
  }
  if (x > y) {
    return angleX > 0.0F ? Pose::Right : Pose::Left;
  }
  return angleY > 0.0F ? Pose::Belly : Pose::Back;
}

GKRobotPose::Pose
GKRobotPose::xFindNearest(const LegPosture& measured,
                          std::span<const ReferencePose* const> candidates) noexcept {
  Pose nearest = Pose::Unknown;
  float best = kNoDistance;
  for (const ReferencePose* candidate : candidates) {
    // Strictly: the earlier one wins a tie, and NaN never wins.
    const float distance = distanceBetween(measured, candidate->posture);
    if (best > distance) {
      nearest = candidate->official;
      best = distance;
    }
  }
  return best > kMatchDistance ? Pose::Unknown : nearest;
}

// By value: the interface is described so, and the tick does not come here.
// NOLINTBEGIN(performance-unnecessary-value-param)
std::string GKRobotPose::xCompareWithReferencePose(std::vector<float> posture,
                                                   std::vector<std::string> candidates) const {
  // NOLINTEND(performance-unnecessary-value-param)
  std::vector<const ReferencePose*> references;
  for (const std::string& name : candidates) {
    const auto reference = fReferencePoses.find(name);
    if (reference != fReferencePoses.end()) {
      references.push_back(&reference->second);
    }
  }
  if (references.empty()) {
    return kUnknown;
  }
  LegPosture measured{};
  for (std::size_t i = 0; i < measured.size(); ++i) {
    measured[i] = posture.at(i);
  }
  return xNameOf(xFindNearest(measured, references));
}

// Knows more than the reference table has: standing and crouching are told by a rule, but their
// names are converted all the same.
void GKRobotPose::xConvertRefPoseToOfficialPose(std::string& name) {
  if (name == "Sit1" || name == "Sit2" || name == "Sit3" || name == "Sit4") {
    name = "Sit";
  } else if (name == "Stand1" || name == "Stand2" || name == "Stand3" || name == "Stand4") {
    name = "Stand";
  } else if (name == "Crouch1" || name == "Crouch2") {
    name = "Crouch";
  } else if (name == "Knee1" || name == "Knee2") {
    name = "Knee";
  }
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): takes a copy like the above
unsigned int GKRobotPose::xConvertPoseToInt(std::string name) const {
  const auto found = std::find(fPoseNames.begin(), fPoseNames.end(), name);
  return static_cast<unsigned int>(found - fPoseNames.begin());
}

GKRobotPose::Pose GKRobotPose::xPoseOf(const std::string& name) const {
  const unsigned int code = xConvertPoseToInt(name);
  return code < kPoseCount ? static_cast<Pose>(code) : Pose::Unknown;
}

} // namespace GK
