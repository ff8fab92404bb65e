#pragma once

#include <cmath>

/// Vectors and rotations of a plane, both as complex numbers: the product of a unit number and a
/// vector is the turned vector.
namespace kelvara::kinematics {

struct Planar {
  double x = 0.0, y = 0.0;
};

inline Planar operator+(const Planar& a, const Planar& b) { return {a.x + b.x, a.y + b.y}; }
inline Planar operator-(const Planar& a, const Planar& b) { return {a.x - b.x, a.y - b.y}; }
inline Planar operator*(double s, const Planar& a) { return {s * a.x, s * a.y}; }
inline Planar operator*(const Planar& a, const Planar& b) {
  return {a.x * b.x - a.y * b.y, a.x * b.y + a.y * b.x};
}
inline Planar conjugate(const Planar& a) { return {a.x, -a.y}; }
inline double squared_norm(const Planar& a) { return a.x * a.x + a.y * a.y; }
inline double norm(const Planar& a) { return std::sqrt(squared_norm(a)); }
inline Planar unit(const Planar& a) { return (1.0 / norm(a)) * a; }
inline double angle_of(const Planar& a) { return std::atan2(a.y, a.x); }
inline Planar unit_at(double angle) { return {std::cos(angle), std::sin(angle)}; }

}  // namespace kelvara::kinematics
