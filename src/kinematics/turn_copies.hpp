#pragma once

#include <vector>

#include "kinematics/joint_range.hpp"

namespace kelvara::kinematics {

/// At most this many copies of one solution.
inline constexpr std::size_t kMaxTurnCopies = 729;  // three turns of each joint

/// Returns a solution with every combination of full turns that lies within the ranges. A joint
/// without a limit on either side keeps its angle.
std::vector<JointArray> turn_copies(const JointRanges& ranges, const JointArray& q);

}  // namespace kelvara::kinematics
