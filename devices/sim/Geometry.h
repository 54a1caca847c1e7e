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

/// The rotation that lies the given share (0 to 1) of the way from `a` to `b`.
inline Rotation between(const Rotation& a, const Rotation& b, double share) {
  const Vector way = rotationVector(b * inverse(a));
  const double angle = length(way);
  return angle < 1e-9 ? b : rotation((1 / angle) * way, share * angle) * a;
}

} // namespace gk::devices
