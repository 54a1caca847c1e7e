#include "messages/ros/RobotModel.h"

#include "messages/keys/DeviceKeys.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace gk::messages::ros {

namespace {

using Kind = Shape::Kind;
using Paint = Shape::Paint;

constexpr Vector kX = {1, 0, 0};
constexpr Vector kY = {0, 1, 0};
constexpr Vector kZ = {0, 0, 1};
constexpr Vector kHere = {0, 0, 0};

/// Where the force cells stand on the floor, seen from the ankle.
constexpr double kSoleHeight = -0.04;
constexpr double kCellRadius = 0.008;

/// Limits are those of the key that moves the joint.
Joint joint(std::string_view name, const Vector& axis, double effort,
            std::string_view mimics = {}) {
  const std::string_view moved = mimics.empty() ? name : mimics;
  const DeviceKey* key = findDeviceKey(deviceKey(moved, "/Position/Actuator/Value"));
  const messages::Range range =
      key != nullptr && key->range ? *key->range : messages::Range{0.0F, 0.0F};
  return {std::string(name), axis, range.least, range.most, effort, mimics};
}

Shape sphere(double radius, const Vector& centre, double mass, Paint paint) {
  return {Kind::Sphere, {radius, radius, radius}, centre, mass, paint, true, false, {}};
}
Shape box(const Vector& halves, const Vector& centre, double mass, Paint paint) {
  return {Kind::Box, halves, centre, mass, paint, true, false, {}};
}
/// Between two places on a line along x or z.
Shape capsule(double radius, const Vector& from, const Vector& to, double mass) {
  const bool isAlongX = from[2] == to[2];
  const std::size_t along = isAlongX ? 0 : 2;
  Vector centre = from;
  centre[along] = (from[along] + to[along]) / 2;
  const double half = std::abs(to[along] - from[along]) / 2;
  return {Kind::Capsule, {radius, half, 0}, centre, mass, Paint::Shell, true, isAlongX, {}};
}
Shape named(std::string_view name, Shape shape) {
  shape.name = name;
  return shape;
}
Shape unsolid(Shape shape) {
  shape.isSolid = false;
  return shape;
}
/// The ball that shows where a joint is.
Shape knob(double radius, double mass) {
  return unsolid(sphere(radius, kHere, mass, Paint::Joint));
}
/// What is touched.
Shape plate(const Vector& centre, double radius = 0.012, Paint paint = Paint::Touch) {
  return unsolid(sphere(radius, centre, 0.002, paint));
}

class Body {
public:
  std::vector<Link> take() { return std::move(fLinks); }

  /// Returns the place of the new link.
  std::size_t add(std::size_t parent, std::string name, const Vector& origin,
                  std::optional<Joint> joint, std::vector<Shape> shapes) {
    fLinks.push_back({std::move(name), parent, origin, kHere, std::move(joint), std::move(shapes)});
    return fLinks.size() - 1;
  }
  /// A frame that nothing is drawn of.
  void addFrame(std::size_t parent, std::string_view name, const Vector& origin,
                const Vector& turn = kHere) {
    fLinks.push_back({std::string(name), parent, origin, turn, std::nullopt, {}});
  }

private:
  std::vector<Link> fLinks;
};

/// Both sides have the same parts; what lies aside changes its sign.
struct Half {
  std::string_view letter; ///< "L"
  std::string_view prefix; ///< "l_"
  double left;             ///< 1 for the left side, -1 for the right one

  std::string key(std::string_view part) const { return std::string(letter).append(part); }
  std::string link(std::string_view part) const { return std::string(prefix).append(part); }
};
constexpr Half kHalves[] = {{"L", "l_", 1}, {"R", "r_", -1}};

void addHead(Body& body, std::size_t torso) {
  constexpr double effort = 0.9;
  Shape cylinder{Kind::Cylinder, {0.018, 0.016, 0}, kHere, 0.06, Paint::Joint, true, false, "Neck"};
  const std::size_t neck =
      body.add(torso, "neck", {0, 0, 0.108}, joint("HeadYaw", kZ, effort), {std::move(cylinder)});
  Shape skull{
      Kind::Ellipsoid, {0.05, 0.055, 0.05}, {0.004, 0, 0.042}, 0.44, Paint::Shell, true, false,
      "Head"};
  body.add(neck, "head", {0, 0, 0.012}, joint("HeadPitch", kY, effort),
           {std::move(skull), plate({0.034, 0, 0.078}), plate({0.008, 0, 0.088}),
            plate({-0.02, 0, 0.082}),
            unsolid(box({0.004, 0.03, 0.008}, {0.05, 0, 0.048}, 0, Paint::Joint))});
}

void addArm(Body& body, std::size_t torso, const Half& half) {
  constexpr double shoulderEffort = 1.4;
  constexpr double elbowEffort = 1.1;
  const double aside = half.left * 0.012;
  const std::size_t shoulder =
      body.add(torso, half.link("shoulder"), {0, half.left * 0.09, 0.078},
               joint(half.key("ShoulderPitch"), kY, shoulderEffort), {knob(0.026, 0.08)});
  const std::size_t upper = body.add(
      shoulder, half.link("upper_arm"), kHere, joint(half.key("ShoulderRoll"), kZ, shoulderEffort),
      {named(half.key("UpperArm"), capsule(0.021, {0.015, aside, 0}, {0.09, aside, 0}, 0.13))});
  const std::size_t elbow =
      body.add(upper, half.link("elbow"), {0.1, aside, 0},
               joint(half.key("ElbowYaw"), kX, elbowEffort), {knob(0.02, 0.05)});
  const std::size_t forearm =
      body.add(elbow, half.link("forearm"), kHere, joint(half.key("ElbowRoll"), kZ, elbowEffort),
               {named(half.key("Forearm"), capsule(0.019, {0.015, 0, 0}, {0.055, 0, 0}, 0.07))});
  const std::size_t wrist =
      body.add(forearm, half.link("wrist"), {0.06, 0, 0}, joint(half.key("WristYaw"), kX, 0.4),
               {named(half.key("Hand"), sphere(0.022, {0.022, 0, 0}, 0.06, Paint::Joint)),
                plate({0.024, half.left * 0.018, 0}, 0.008)});
  body.add(wrist, half.link("gripper"), {0.036, 0, 0}, joint(half.key("Hand"), kY, 0.1),
           {unsolid(box({0.012, 0.014, 0.004}, {0.012, 0, 0.004}, 0.01, Paint::Shell))});
}

std::vector<Shape> footShapes(const Half& half) {
  const double middle = half.left * 0.004;
  std::vector<Shape> shapes = {named(
      half.key("Foot"), box({0.075, 0.042, 0.01}, {0.02, middle, -0.025}, 0.12, Paint::Shell))};
  for (const std::string_view cell : kForceCells) {
    const double x = cell.starts_with("Front") ? 0.083 : -0.045;
    const double y = middle + (cell.ends_with("Left") ? 0.032 : -0.032);
    shapes.push_back(
        named(half.key(cell) + "Cell",
              sphere(kCellRadius, {x, y, kSoleHeight + kCellRadius}, 0.012, Paint::Joint)));
  }
  for (const auto& [bumper, y] :
       {std::pair("LeftBumper", 0.024), std::pair("RightBumper", -0.024)}) {
    shapes.push_back(
        named(half.key(bumper), sphere(0.009, {0.098, middle + y, -0.022}, 0.004, Paint::Accent)));
  }
  return shapes;
}

void addLeg(Body& body, std::size_t torso, const Half& half) {
  constexpr double effort = 3.5;
  constexpr double rollEffort = 3;
  const bool isCoupled = half.key("HipYawPitch") == kCoupledJoint;
  const std::size_t pelvis =
      body.add(torso, half.link("pelvis"), {0, half.left * 0.05, -0.075},
               joint(half.key("HipYawPitch"),
                     {0, std::numbers::sqrt2 / 2, -half.left * std::numbers::sqrt2 / 2}, rollEffort,
                     isCoupled ? kCouplingJoint : std::string_view()),
               {knob(0.026, 0.10)});
  const std::size_t hip = body.add(pelvis, half.link("hip"), kHere,
                                   joint(half.key("HipRoll"), kX, rollEffort), {knob(0.027, 0.08)});
  const std::size_t thigh =
      body.add(hip, half.link("thigh"), kHere, joint(half.key("HipPitch"), kY, effort),
               {named(half.key("Thigh"), capsule(0.028, {0, 0, -0.02}, {0, 0, -0.09}, 0.36))});
  const std::size_t shin =
      body.add(thigh, half.link("shin"), {0, 0, -0.105}, joint(half.key("KneePitch"), kY, effort),
               {named(half.key("Knee"), sphere(0.027, kHere, 0.05, Paint::Joint)),
                named(half.key("Shin"), capsule(0.025, {0, 0, -0.02}, {0, 0, -0.08}, 0.24))});
  const std::size_t ankle = body.add(shin, half.link("ankle"), {0, 0, -0.1},
                                     joint(half.key("AnklePitch"), kY, effort), {knob(0.02, 0.06)});
  const std::size_t foot = body.add(ankle, half.link("foot"), kHere,
                                    joint(half.key("AnkleRoll"), kX, rollEffort), footShapes(half));
  body.addFrame(foot, half.left > 0 ? kSoleFrames[0] : kSoleFrames[1], {0, 0, kSoleHeight});
}

std::vector<Link> makeBody() {
  constexpr double emitterTurn = 20 * std::numbers::pi / 180;
  Body body;
  // A root with a mass is nothing that all readers of descriptions take.
  const std::size_t root = body.add(0, std::string(kRootFrame), kHere, std::nullopt, {});
  const std::size_t torso =
      body.add(root, "torso", kHere, std::nullopt,
               {named("Chest", box({0.042, 0.062, 0.058}, {0, 0, 0.035}, 0.70, Paint::Shell)),
                named("Pelvis", box({0.034, 0.055, 0.026}, {0, 0, -0.045}, 0.36, Paint::Joint)),
                named("ChestButton", plate({0.04, 0, 0.05}, 0.012, Paint::Accent))});
  body.addFrame(torso, kImuFrame, {0, 0, 0.02});
  body.addFrame(torso, kSonarFrames[0], {0.043, 0.03, 0.03}, {0, 0, emitterTurn});
  body.addFrame(torso, kSonarFrames[1], {0.043, -0.03, 0.03}, {0, 0, -emitterTurn});
  addHead(body, torso);
  for (const Half& half : kHalves) {
    addArm(body, torso, half);
    addLeg(body, torso, half);
  }
  return body.take();
}

Rotation product(const Rotation& a, const Rotation& b) {
  return {a[3] * b[0] + a[0] * b[3] + a[1] * b[2] - a[2] * b[1],
          a[3] * b[1] - a[0] * b[2] + a[1] * b[3] + a[2] * b[0],
          a[3] * b[2] + a[0] * b[1] - a[1] * b[0] + a[2] * b[3],
          a[3] * b[3] - a[0] * b[0] - a[1] * b[1] - a[2] * b[2]};
}

Rotation about(const Vector& axis, double angle) {
  const double sine = std::sin(angle / 2);
  return {sine * axis[0], sine * axis[1], sine * axis[2], std::cos(angle / 2)};
}

std::array<CellPlaces, 2> findCells() {
  std::array<CellPlaces, 2> places{};
  for (std::size_t foot = 0; foot < places.size(); ++foot) {
    const Link& sole = robotLinks()[linkNamed(kSoleFrames[foot])];
    const Link& carrier = robotLinks()[sole.parent];
    for (std::size_t cell = 0; cell < kForceCells.size(); ++cell) {
      const auto shape = std::ranges::find(
          carrier.shapes, kHalves[foot].key(kForceCells[cell]) + "Cell", &Shape::name);
      places[foot][cell] = {shape->centre[0] - sole.origin[0], shape->centre[1] - sole.origin[1]};
    }
  }
  return places;
}

} // namespace

const std::vector<Link>& robotLinks() {
  static const std::vector<Link> links = makeBody();
  return links;
}

std::size_t linkNamed(std::string_view name) {
  const auto& links = robotLinks();
  return static_cast<std::size_t>(std::ranges::find(links, name, &Link::name) - links.begin());
}

const CellPlaces& cellPlaces(std::size_t foot) {
  static const std::array<CellPlaces, 2> places = findCells();
  return places[foot];
}

Rotation rotationOf(const Vector& turn) {
  return product(about(kZ, turn[2]), product(about(kY, turn[1]), about(kX, turn[0])));
}

Rotation rotationOf(const Link& link, double angle) {
  const Rotation fixed = rotationOf(link.turn);
  return link.joint ? product(fixed, about(link.joint->axis, angle)) : fixed;
}

} // namespace gk::messages::ros
