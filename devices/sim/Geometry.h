#pragma once

#include <array>
#include <cmath>

/// Vectors and rotations of the simulated world: x ahead, y to the left, z up, metres, radian.
namespace gk::devices {

using Vector = std::array<double, 3>;

inline Vector operator+(const Vector& a, const Vector& b) {
  return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}
inline Vector operator-(const Vector& a, const Vector& b) {
  return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
inline Vector operator*(double factor, const Vector& a) {
  return {factor * a[0], factor * a[1], factor * a[2]};
}
inline double dot(const Vector& a, const Vector& b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
inline Vector cross(const Vector& a, const Vector& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
inline double length(const Vector& a) {
  return std::sqrt(dot(a, a));
}

/// A rotation as a unit quaternion: w, x, y, z.
using Rotation = std::array<double, 4>;

inline constexpr Rotation kNoRotation = {1, 0, 0, 0};

/// About `axis` (unit length) by `angle`.
inline Rotation rotation(const Vector& axis, double angle) {
  const double sine = std::sin(angle / 2);
  return {std::cos(angle / 2), sine * axis[0], sine * axis[1], sine * axis[2]};
}

/// `b` first, then `a`.
inline Rotation operator*(const Rotation& a, const Rotation& b) {
  return {a[0] * b[0] - a[1] * b[1] - a[2] * b[2] - a[3] * b[3],
          a[0] * b[1] + a[1] * b[0] + a[2] * b[3] - a[3] * b[2],
          a[0] * b[2] - a[1] * b[3] + a[2] * b[0] + a[3] * b[1],
          a[0] * b[3] + a[1] * b[2] - a[2] * b[1] + a[3] * b[0]};
}

inline Rotation inverse(const Rotation& a) {
  return {a[0], -a[1], -a[2], -a[3]};
}

/// Axis times angle of a rotation, the angle at most pi.
inline Vector rotationVector(const Rotation& a) {
  const Vector axis = {a[1], a[2], a[3]};
  const double sine = length(axis);
  if (sine < 1e-9) {
    return {0, 0, 0};
  }
  double angle = 2 * std::atan2(sine, a[0]);
  if (angle > M_PI) {
    angle -= 2 * M_PI;
  }
  return (angle / sine) * axis;
}

/// The rotation by a vector's length about its direction.
inline Rotation fromRotationVector(const Vector& vector) {
  const double angle = length(vector);
  return angle < 1e-9 ? kNoRotation : rotation((1 / angle) * vector, angle);
}

inline Vector rotate(const Rotation& a, const Vector& vector) {
  const Rotation turned = a * Rotation{0, vector[0], vector[1], vector[2]} * inverse(a);
  return {turned[1], turned[2], turned[3]};
}

/// An attitude as people see it: which way the body faces, and how it leans.
struct Lean {
  double heading; ///< about the world's z axis, rad
  Vector tilt;    ///< the one turn from upright, about horizontal axes of the heading, rad
};

inline Rotation attitudeOf(const Lean& lean) {
  return rotation({0, 0, 1}, lean.heading) * fromRotationVector(lean.tilt);
}

inline Lean leanOf(const Rotation& attitude) {
  const Vector up = rotate(attitude, {0, 0, 1});
  const double sine = std::hypot(up[0], up[1]);
  const double angle = std::atan2(sine, up[2]);
  // Upside down any axis will do.
  const Vector axis = sine < 1e-9 ? Vector{0, 1, 0} : (1 / sine) * Vector{-up[1], up[0], 0};
  const Rotation upright = rotation(axis, -angle) * attitude;
  const double heading = 2 * std::atan2(upright[3], upright[0]);
  return {std::remainder(heading, 2 * M_PI), angle * rotate(inverse(upright), axis)};
}

/// What lies the given share (0 to 1) of the way from `a` to `b`, turning and tilting evenly.
inline Rotation between(const Rotation& a, const Rotation& b, double share) {
  const Lean from = leanOf(a);
  const Lean to = leanOf(b);
  const double turn = std::remainder(to.heading - from.heading, 2 * M_PI);
  return attitudeOf({from.heading + share * turn, from.tilt + share * (to.tilt - from.tilt)});
}

} // namespace gk::devices
