#pragma once

#include <array>
#include <memory>

#include <Eigen/Geometry>

namespace fcl {
template <typename S>
class CollisionGeometry;
}

namespace kelvara::collision {

/// A convex solid around the origin of its own frame: the Minkowski sum of a box, a disc normal to
/// z and a ball. The floor alone has no geometry: it is the half space below z = 0.
struct Solid {
  /// @param size Edge lengths, m.
  static Solid box(const std::array<double, 3>& size);
  /// Along z. @param length m
  static Solid cylinder(double radius, double length);
  static Solid sphere(double radius);
  /// Along z. @param length Distance of the caps' centres, m.
  static Solid capsule(double radius, double length);
  static Solid floor();

  bool is_floor() const { return geometry == nullptr; }
  /// Support function: the largest component along the direction, of any length, of its points.
  double extent(const Eigen::Vector3d& direction) const;
  /// The point that reaches farthest along the direction; of several the one in their middle.
  Eigen::Vector3d support(const Eigen::Vector3d& direction) const;
  /// Distance of the farthest point from the origin, m.
  double reach() const;

  Eigen::Vector3d half_size = Eigen::Vector3d::Zero();               // of the box, m
  double disc = 0.0;                                                 // radius, m
  double ball = 0.0;                                                 // radius, m
  std::shared_ptr<const fcl::CollisionGeometry<double>> geometry{};  // of the sum
  Eigen::Isometry3d pose = Eigen::Isometry3d::Identity();  // in the frame that it moves with
};

}  // namespace kelvara::collision
