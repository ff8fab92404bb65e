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

}  // namespace kelvara::kinematics
