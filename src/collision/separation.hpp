#pragma once

#include <Eigen/Geometry>

#include "collision/solid.hpp"

namespace kelvara::collision {

/// A solid and where it is in the base frame.
struct PlacedSolid {
  const Solid& solid;
  Eigen::Isometry3d pose;
};

/// How two solids lie to each other.
struct Separation {
  double distance = 0.0;   // m; negative: depth of the overlap, the shortest way to separate them
  Eigen::Vector3d normal;  // unit, from the first to the second, along the distance
};

/// Width of the gap between two solids along a unit vector from `a` to `b`, negative for an
/// overlap: the solids are at least this far apart, whatever the vector. Of the floor, only for its
/// normal.
double gap(const PlacedSolid& a, const PlacedSolid& b, const Eigen::Vector3d& normal);

/// The signed distance: the largest gap over all directions. Only the first solid may be the floor.
Separation separation(const PlacedSolid& a, const PlacedSolid& b);

/// The point in the middle of the overlap or of the gap.
Eigen::Vector3d contact_point(const PlacedSolid& a, const PlacedSolid& b,
                              const Separation& separation);

}  // namespace kelvara::collision
