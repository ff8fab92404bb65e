#pragma once

#include <array>
#include <vector>

#include "description/joint_array.hpp"
#include "motion/quintic.hpp"

namespace kelvara::motion {

/// The joints at one parameter of a path, with their derivatives by it.
struct PathKnot {
  double s = 0.0;
  JointArray q{};       // rad
  JointArray first{};   // rad per unit of the parameter
  JointArray second{};  // likewise, twice
};

struct PathState : PathKnot {
  JointArray third{};
};

/// Joint angles along a path: polynomials of the fifth degree between knots, with continuous second
/// derivatives. Immutable.
class JointPath {
 public:
  /// @param knots At least two, in increasing order of the parameter, which begins at 0.
  explicit JointPath(std::vector<PathKnot> knots);

  /// @param s From 0 to `length()`; clamped. The last knot's angles are exact.
  PathState at(double s) const;
  double length() const { return knots_.back().s; }
  const std::vector<PathKnot>& knots() const { return knots_; }

 private:
  std::vector<PathKnot> knots_;
  std::vector<std::array<Quintic<double>, kJointCount>> curves_;  // one for each pair of knots
};

/// The curve of each joint between two knots.
std::array<Quintic<double>, kJointCount> curves_between(const PathKnot& from, const PathKnot& to);

/// Straight lines in joint space through `points`; the corner at each inner point is rounded. The
/// parameter is the length in joint space, rad, of a rounding that of the stretches it replaces.
/// @param points    Two or more, each different from the one before.
/// @param roundings Of the corner at each inner point: the path stays within this distance of the
///                  corner, rad; at most half of the shorter line is used.
JointPath straight_joint_path(const std::vector<JointArray>& points,
                              const std::vector<double>& roundings);

/// Length of the line between two points of joint space, rad.
double joint_distance(const JointArray& from, const JointArray& to);

}  // namespace kelvara::motion
