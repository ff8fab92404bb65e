#pragma once

#include <array>
#include <limits>

#include "description/joint_array.hpp"

namespace kelvara::kinematics {

/// The values that a joint may take, rad (m for a prismatic joint); infinite without limits.
struct JointRange {
  double lower = -std::numeric_limits<double>::infinity();
  double upper = std::numeric_limits<double>::infinity();
  bool prismatic = false;  // does not repeat after a full turn

  /// Adds full turns, as few as possible, so that the angle lies in the range, or beyond it by less
  /// than `margin` (and then, for a margin that counts as rounding, is moved onto the limit).
  /// Returns false when no turn does.
  bool fit(double& angle, double margin) const;
  /// Moves an angle in the range by full turns, inside the range, as near to `near` as possible.
  double turned_towards(double angle, double near) const;
  /// How far the angle lies beyond the nearer limit, the best turn taken; 0 inside. `angle` becomes
  /// that turn.
  double excess(double& angle) const;
  /// The middle of the range; 0 without limits.
  double middle() const;
};

using JointRanges = std::array<JointRange, kJointCount>;

/// Fits all angles; false when one does not fit.
bool fit(const JointRanges& ranges, JointArray& q, double margin);

/// A joint beyond its limit.
struct Excess {
  std::size_t joint = 0;
  double angle = 0.0;
  double by = 0.0;
};

/// Returns the joint that is furthest beyond its limit; `by` is 0 when all are inside.
Excess largest_excess(const JointRanges& ranges, const JointArray& q);

}  // namespace kelvara::kinematics
