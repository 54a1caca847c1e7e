#include "messages/ros/Urdf.h"

#include "messages/ros/RobotModel.h"
#include "messages/text/Numbers.h"

#include <cmath>
#include <numbers>
#include <utility>

namespace gk::messages::ros {

namespace {

/// No joint of the robot has a limit of its own; readers of descriptions want one, rad/s.
constexpr double kJointSpeed = 6;

struct Color {
  const char* name;
  const char* rgba;
};
/// In the order of `Shape::Paint`.
constexpr Color kColors[] = {{"shell", "0.93 0.93 0.95 1"},
                             {"joint", "0.32 0.36 0.42 1"},
                             {"accent", "0.95 0.5 0.15 1"},
                             {"touch", "0.2 0.55 0.75 1"}};

std::string text(double value) {
  return doubleText(value);
}

std::string text(const Vector& values) {
  return text(values[0]) + " " + text(values[1]) + " " + text(values[2]);
}

/// What takes no more digits than keys have.
std::string limitText(double value) {
  std::string digits;
  appendFloat(digits, static_cast<float>(value));
  return digits;
}

/// Moments of inertia about the middle of a shape, along x, y and z, for even density.
Vector inertiaOf(const Shape& shape) {
  const double mass = shape.mass;
  const auto& [a, b, c] = shape.size;
  Vector moments{};
  switch (shape.kind) {
  case Shape::Kind::Box:
    moments = {mass / 3 * (b * b + c * c), mass / 3 * (a * a + c * c), mass / 3 * (a * a + b * b)};
    break;
  case Shape::Kind::Sphere:
  case Shape::Kind::Ellipsoid:
    moments = {mass / 5 * (b * b + c * c), mass / 5 * (a * a + c * c), mass / 5 * (a * a + b * b)};
    break;
  case Shape::Kind::Cylinder:
    moments[2] = mass / 2 * a * a;
    moments[0] = moments[1] = mass * (a * a / 4 + b * b / 3);
    break;
  case Shape::Kind::Capsule: {
    // A cylinder and a ball that is cut in two.
    const double ball = mass * (4 * a / 3) / (4 * a / 3 + 2 * b);
    const double tube = mass - ball;
    moments[2] = tube / 2 * a * a + 2 * ball / 5 * a * a;
    moments[0] = moments[1] =
        tube * (a * a / 4 + b * b / 3) + ball * (2 * a * a / 5 + b * b + 3 * a * b / 4);
    break;
  }
  }
  if (shape.liesAlongX) {
    std::swap(moments[0], moments[2]);
  }
  return moments;
}

void appendInertia(std::string& out, const Link& link) {
  double mass = 0;
  Vector centre{};
  for (const Shape& shape : link.shapes) {
    mass += shape.mass;
    for (std::size_t i = 0; i < centre.size(); ++i) {
      centre[i] += shape.mass * shape.centre[i];
    }
  }
  if (mass <= 0) {
    return;
  }
  for (double& part : centre) {
    part /= mass;
  }
  // Moments first, then products: xy, xz, yz.
  Vector moments{};
  Vector products{};
  for (const Shape& shape : link.shapes) {
    const Vector own = inertiaOf(shape);
    const Vector d = {shape.centre[0] - centre[0], shape.centre[1] - centre[1],
                      shape.centre[2] - centre[2]};
    const double square = d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
    for (std::size_t i = 0; i < moments.size(); ++i) {
      moments[i] += own[i] + shape.mass * (square - d[i] * d[i]);
    }
    products[0] -= shape.mass * d[0] * d[1];
    products[1] -= shape.mass * d[0] * d[2];
    products[2] -= shape.mass * d[1] * d[2];
  }
  out += "    <inertial>\n      <origin xyz=\"" + text(centre) + "\" rpy=\"0 0 0\"/>\n";
  out += "      <mass value=\"" + text(mass) + "\"/>\n";
  out += "      <inertia ixx=\"" + text(moments[0]) + "\" ixy=\"" + text(products[0]) +
         "\" ixz=\"" + text(products[1]) + "\" iyy=\"" + text(moments[1]) + "\" iyz=\"" +
         text(products[2]) + "\" izz=\"" + text(moments[2]) + "\"/>\n    </inertial>\n";
}

/// One geometry, as it is seen and, where it is solid, as it is met.
void appendGeometry(std::string& out, const Shape& shape, const Vector& centre,
                    const std::string& geometry) {
  const char* turn = shape.liesAlongX ? "0 1.5707963267948966 0" : "0 0 0";
  const std::string place = "      <origin xyz=\"" + text(centre) + "\" rpy=\"" + turn +
                            "\"/>\n      <geometry>" + geometry + "</geometry>\n";
  const Color& color = kColors[static_cast<std::size_t>(shape.paint)];
  out +=
      "    <visual>\n" + place + "      <material name=\"" + color.name + "\"/>\n    </visual>\n";
  if (shape.isSolid) {
    out += "    <collision>\n" + place + "    </collision>\n";
  }
}

std::string sphereText(double radius) {
  return "<sphere radius=\"" + text(radius) + "\"/>";
}

std::string cylinderText(double radius, double half) {
  return "<cylinder radius=\"" + text(radius) + "\" length=\"" + text(2 * half) + "\"/>";
}

void appendShape(std::string& out, const Shape& shape) {
  const auto& [a, b, c] = shape.size;
  switch (shape.kind) {
  case Shape::Kind::Box:
    appendGeometry(out, shape, shape.centre,
                   "<box size=\"" + text(Vector{2 * a, 2 * b, 2 * c}) + "\"/>");
    break;
  case Shape::Kind::Sphere:
    appendGeometry(out, shape, shape.centre, sphereText(a));
    break;
  case Shape::Kind::Ellipsoid:
    // The format has none: a ball of the same volume.
    appendGeometry(out, shape, shape.centre, sphereText(std::cbrt(a * b * c)));
    break;
  case Shape::Kind::Cylinder:
    appendGeometry(out, shape, shape.centre, cylinderText(a, b));
    break;
  case Shape::Kind::Capsule:
    // The format has none: a cylinder with a ball at each end.
    appendGeometry(out, shape, shape.centre, cylinderText(a, b));
    for (const double end : {-b, b}) {
      Vector centre = shape.centre;
      centre[shape.liesAlongX ? 0 : 2] += end;
      appendGeometry(out, shape, centre, sphereText(a));
    }
    break;
  }
}

void appendLink(std::string& out, const Link& link) {
  const std::string begin = "  <link name=\"" + link.name + "\"";
  if (link.shapes.empty()) {
    out += begin + "/>\n";
    return;
  }
  out += begin + ">\n";
  appendInertia(out, link);
  for (const Shape& shape : link.shapes) {
    appendShape(out, shape);
  }
  out += "  </link>\n";
}

void appendJoint(std::string& out, const Link& link, const Link& parent) {
  const std::string name = link.joint ? link.joint->name : link.name + "_fixed";
  out += "  <joint name=\"" + name + "\" type=\"" + (link.joint ? "revolute" : "fixed") + "\">\n";
  out += "    <parent link=\"" + parent.name + "\"/>\n    <child link=\"" + link.name + "\"/>\n";
  out += "    <origin xyz=\"" + text(link.origin) + "\" rpy=\"" + text(link.turn) + "\"/>\n";
  if (link.joint) {
    const Joint& joint = *link.joint;
    out += "    <axis xyz=\"" + text(joint.axis) + "\"/>\n";
    out += "    <limit lower=\"" + limitText(joint.lower) + "\" upper=\"" + limitText(joint.upper) +
           "\" effort=\"" + text(joint.effort) + "\" velocity=\"" + text(kJointSpeed) + "\"/>\n";
    if (!joint.mimics.empty()) {
      out += "    <mimic joint=\"" + std::string(joint.mimics) +
             "\" multiplier=\"1\" offset=\"0\"/>\n";
    }
  }
  out += "  </joint>\n";
}

std::string makeUrdf() {
  std::string out = "<?xml version=\"1.0\"?>\n<robot name=\"gk_robot\">\n";
  for (const Color& color : kColors) {
    out += std::string("  <material name=\"") + color.name + "\"><color rgba=\"" + color.rgba +
           "\"/></material>\n";
  }
  const std::vector<Link>& links = robotLinks();
  for (const Link& link : links) {
    appendLink(out, link);
  }
  for (std::size_t i = 1; i < links.size(); ++i) {
    appendJoint(out, links[i], links[links[i].parent]);
  }
  out += "</robot>\n";
  return out;
}

} // namespace

const std::string& robotUrdf() {
  static const std::string urdf = makeUrdf();
  return urdf;
}

} // namespace gk::messages::ros
