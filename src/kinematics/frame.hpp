#pragma once

#include <cmath>

#include "kelvara/pose.hpp"

/// Vectors, rotations and frames as plain doubles: small enough to be inlined and kept in registers
/// where the inverse kinematics is timed in nanoseconds.
namespace kelvara::kinematics {

struct Vector3 {
  double x = 0.0, y = 0.0, z = 0.0;
};

inline Vector3 operator+(const Vector3& a, const Vector3& b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline Vector3 operator-(const Vector3& a, const Vector3& b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline Vector3 operator*(double s, const Vector3& a) { return {s * a.x, s * a.y, s * a.z}; }
inline double dot(const Vector3& a, const Vector3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vector3 cross(const Vector3& a, const Vector3& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline double norm(const Vector3& a) { return std::sqrt(dot(a, a)); }
inline Vector3 normalized(const Vector3& a) { return (1.0 / norm(a)) * a; }

/// A rotation matrix by its columns: the axes of the turned frame in the reference frame.
struct Rotation {
  Vector3 x{1.0, 0.0, 0.0}, y{0.0, 1.0, 0.0}, z{0.0, 0.0, 1.0};
};

inline Vector3 operator*(const Rotation& R, const Vector3& v) {
  return v.x * R.x + v.y * R.y + v.z * R.z;
}
inline Rotation operator*(const Rotation& A, const Rotation& B) {
  return {A * B.x, A * B.y, A * B.z};
}
inline Rotation transpose(const Rotation& R) {
  return {{R.x.x, R.y.x, R.z.x}, {R.x.y, R.y.y, R.z.y}, {R.x.z, R.y.z, R.z.z}};
}

/// A frame in another: a rotation and the place of the origin, m.
struct Frame {
  Rotation rotation;
  Vector3 position;
};

inline Frame operator*(const Frame& A, const Frame& B) {
  return {A.rotation * B.rotation, A.rotation * B.position + A.position};
}
inline Frame inverse(const Frame& A) {
  const Rotation back = transpose(A.rotation);
  return {back, -1.0 * (back * A.position)};
}

/// The frame of a pose.
Frame frame_of(const Pose& pose);
/// Returns the pose of a frame: pitch within ±90 degrees; yaw = 0 where pitch is ±90 degrees. The
/// rotation of the result equals the frame's to rounding at any pitch.
Pose pose_of(const Frame& frame);

}  // namespace kelvara::kinematics
