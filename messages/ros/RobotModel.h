#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The robot's body as viewers draw it: links and joints. It is the simulated robot's; a test holds
/// both against each other. x ahead, y to the left, z up; lengths in metres, angles in radians,
/// masses in kilograms.
namespace gk::messages::ros {

using Vector = std::array<double, 3>;

/// A simple body that moves with a link.
struct Shape {
  enum class Kind : unsigned char { Box, Sphere, Ellipsoid, Cylinder, Capsule };
  enum class Paint : unsigned char { Shell, Joint, Accent, Touch };

  Kind kind = Kind::Sphere;
  /// Half of its edges or axes along x, y and z. Of a cylinder or capsule: its radius, and half of
  /// its length without round ends.
  Vector size{};
  Vector centre{};
  double mass = 0;
  Paint paint = Paint::Shell;
  /// Meets other bodies; the rest is only seen.
  bool isSolid = true;
  /// A cylinder or capsule lies along x instead of z.
  bool liesAlongX = false;
  /// As the simulated robot calls it; most have no name.
  std::string name;
};

/// What lets a link turn against its parent, about an axis through the link's origin.
struct Joint {
  /// As in device keys.
  std::string name;
  Vector axis{};
  double lower = 0;
  double upper = 0;
  /// Largest torque, N m.
  double effort = 0;
  /// The joint that drives it as well; empty for those with a motor of their own.
  std::string_view mimics;
};

struct Link {
  std::string name;
  /// The place of the link that carries it, which comes before it; its own for the root.
  std::size_t parent = 0;
  /// Where it is and how it is turned (roll, pitch and yaw) as seen from its parent while its joint
  /// is at 0.
  Vector origin{};
  Vector turn{};
  /// Nothing for links that stand fast.
  std::optional<Joint> joint;
  std::vector<Shape> shapes;
};

/// All links, the root first. Never changes; from any thread.
const std::vector<Link>& robotLinks();

/// The place of the link of this name; it must be there.
std::size_t linkNamed(std::string_view name);

inline constexpr std::string_view kRootFrame = "base_link";
inline constexpr std::string_view kImuFrame = "imu_link";
inline constexpr std::array<std::string_view, 2> kSonarFrames = {"l_sonar", "r_sonar"};
/// Below the ankles, in the plane that the force cells stand on.
inline constexpr std::array<std::string_view, 2> kSoleFrames = {"l_sole", "r_sole"};

/// Force cells of a foot as they stand in keys, and where they are in the frame of a sole.
inline constexpr std::array<std::string_view, 4> kForceCells = {"FrontLeft", "FrontRight",
                                                                "RearLeft", "RearRight"};
using CellPlaces = std::array<std::array<double, 2>, kForceCells.size()>;
/// `foot`: 0 for the left one, 1 for the right one.
const CellPlaces& cellPlaces(std::size_t foot);

/// x, y, z, w.
using Rotation = std::array<double, 4>;

/// Fixed-axis roll, pitch and yaw as a rotation.
Rotation rotationOf(const Vector& turn);

/// How a link is turned against its parent while its joint is at `angle`.
Rotation rotationOf(const Link& link, double angle);

} // namespace gk::messages::ros
