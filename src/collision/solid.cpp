#include "collision/solid.hpp"

#include <cmath>

#include <fcl/geometry/shape/box.h>
#include <fcl/geometry/shape/capsule.h>
#include <fcl/geometry/shape/cylinder.h>
#include <fcl/geometry/shape/sphere.h>

namespace kelvara::collision {
namespace {

using Eigen::Vector3d;

// Components below this count as zero when the middle of an edge or a face is looked for.
constexpr double kFlat = 1e-9;

double sign_or_zero(double value) {
  return std::abs(value) < kFlat ? 0.0 : std::copysign(1.0, value);
}

}  // namespace

Solid Solid::box(const std::array<double, 3>& size) {
  Solid solid;
  solid.half_size = 0.5 * Vector3d(size[0], size[1], size[2]);
  solid.geometry = std::make_shared<fcl::Boxd>(size[0], size[1], size[2]);
  return solid;
}

Solid Solid::cylinder(double radius, double length) {
  Solid solid;
  solid.half_size.z() = 0.5 * length;
  solid.disc = radius;
  solid.geometry = std::make_shared<fcl::Cylinderd>(radius, length);
  return solid;
}

Solid Solid::sphere(double radius) {
  Solid solid;
  solid.ball = radius;
  solid.geometry = std::make_shared<fcl::Sphered>(radius);
  return solid;
}

Solid Solid::capsule(double radius, double length) {
  Solid solid;
  solid.half_size.z() = 0.5 * length;
  solid.ball = radius;
  solid.geometry = std::make_shared<fcl::Capsuled>(radius, length);
  return solid;
}

Solid Solid::floor() { return {}; }

double Solid::extent(const Vector3d& direction) const {
  return half_size.dot(direction.cwiseAbs()) + disc * direction.head<2>().norm() +
         ball * direction.norm();
}

Vector3d Solid::support(const Vector3d& direction) const {
  Vector3d point = half_size.cwiseProduct(direction.unaryExpr(&sign_or_zero));
  const double across = direction.head<2>().norm();
  if (across > kFlat) {
    point.head<2>() += disc / across * direction.head<2>();
  }
  return point + ball * direction.normalized();
}

double Solid::reach() const {
  return Vector3d(half_size.head<2>().norm() + disc, half_size.z(), 0.0).norm() + ball;
}

}  // namespace kelvara::collision
