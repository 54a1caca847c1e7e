#include "devices/sim/Postures.h"

#include "messages/keys/DeviceKeys.h"

#include <algorithm>
#include <iterator>
#include <numbers>
#include <string>
#include <utility>

namespace gk::devices {

namespace {

/// A posture of both sides alike, degrees, as the left side turns.
struct Shape {
  std::string_view name;
  bool isStand;
  double roll;
  double pitch;
  double hipRoll;
  double hipPitch;
  double knee;
  double anklePitch;
  double shoulderPitch;
  double shoulderRoll;
  double elbowRoll;
  double headPitch;
};

// Sitting, kneeling and squatting are chosen so that the weight lies well inside of what touches
// the floor.
constexpr Shape kShapes[] = {
    // name      stand  roll pitch  hip roll, pitch, knee, ankle   shoulder   elbow  head
    {"Stand", true, 0, 0, 0, -20, 40, -20, 85, 8, -20, 0},
    {"Crouch", true, 0, 20, 0, -78, 118, -60, 70, 12, -40, -10},
    {"Sit", false, 0, -5, 4, -90, 8, 0, 45, 10, -20, 0},
    {"Knee", false, 0, -22, 4, 0, 122, 53, 95, 12, -20, 15},
    {"Frog", false, 0, 35, 20, -95, 118, -58, 50, 15, -40, -20},
    {"Back", false, 0, -90, 4, 0, 5, 0, 80, 12, -10, 0},
    {"Belly", false, 0, 90, 4, 0, 5, 0, -80, 20, -10, 0},
    {"Left", false, -90, 0, 2, -30, 40, -10, 20, 5, -20, 0},
    {"Right", false, 90, 0, 2, -30, 40, -10, 20, 5, -20, 0},
    {"HeadBack", false, 0, 150, 6, -115, 0, -30, 30, 12, -10, 20},
};

constexpr double kElbowYaw = -60;

/// Joints of the left side that turn the other way on the right side.
constexpr std::string_view kMirrored[] = {"HipRoll",  "AnkleRoll", "ShoulderRoll",
                                          "ElbowYaw", "ElbowRoll", "WristYaw"};

double leftAngle(const Shape& shape, std::string_view joint) {
  const std::pair<std::string_view, double> angles[] = {
      {"HipRoll", shape.hipRoll},
      {"HipPitch", shape.hipPitch},
      {"KneePitch", shape.knee},
      {"AnklePitch", shape.anklePitch},
      // Keeps the soles level.
      {"AnkleRoll", -shape.hipRoll},
      {"ShoulderPitch", shape.shoulderPitch},
      {"ShoulderRoll", shape.shoulderRoll},
      {"ElbowYaw", kElbowYaw},
      {"ElbowRoll", shape.elbowRoll},
  };
  const auto* found = std::ranges::find(angles, joint, &std::pair<std::string_view, double>::first);
  return found != std::end(angles) ? found->second : 0.0;
}

double angle(const Shape& shape, std::string_view joint) {
  if (joint == "HeadPitch") {
    return shape.headPitch;
  }
  if (!joint.starts_with('L') && !joint.starts_with('R')) {
    return 0.0;
  }
  const std::string_view oneSided = joint.substr(1);
  const bool isMirrored =
      joint.starts_with('R') && std::ranges::find(kMirrored, oneSided) != std::end(kMirrored);
  return (isMirrored ? -1 : 1) * leftAngle(shape, oneSided);
}

double radians(double degrees) {
  return degrees * std::numbers::pi / 180;
}

std::vector<Posture> makePostures() {
  std::vector<Posture> postures;
  for (const Shape& shape : kShapes) {
    Posture posture{shape.name, shape.isStand, radians(shape.roll), radians(shape.pitch), {}};
    for (const std::string_view joint : messages::jointNames()) {
      posture.angles.push_back(radians(angle(shape, joint)));
    }
    postures.push_back(std::move(posture));
  }
  return postures;
}

} // namespace

std::span<const Posture> postures() {
  static const std::vector<Posture> all = makePostures();
  return all;
}

const Posture* findPosture(std::string_view name) {
  const auto all = postures();
  const auto found = std::ranges::find(all, name, &Posture::name);
  return found != all.end() ? &*found : nullptr;
}

} // namespace gk::devices
