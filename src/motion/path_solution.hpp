#pragma once

#include "kinematics/six_joint_chain.hpp"

#include "motion/joint_path.hpp"
#include "motion/tool_path.hpp"

namespace kelvara::motion {

/// The joint angles that lead the tool along a path, as far as they are found.
struct PathSolution {
  std::vector<PathKnot> knots;  // at least the first one
  bool complete;                // they lead to the path's end
};

/// Follows the tool's path from the joint angles `start`, which reach its first point, without a
/// jump: Newton steps from one knot to the next, to 1e-12. Knots lie as dense as it takes for the
/// curves between them to stay within 1 nm and 1 nrad of the path.
PathSolution solve_path(const kinematics::SixJointChain& chain, const ToolPath& path,
                        const JointArray& start);

/// The smallest singular value of the tool's Jacobian (m/rad and rad/rad).
double smallest_singular_value(const kinematics::SixJointChain& chain, const JointArray& q);

}  // namespace kelvara::motion
