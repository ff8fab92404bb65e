#pragma once

#include "kinematics/six_joint_chain.hpp"

namespace kelvara::kinematics {

/// A pose counts as reached when its error, position (m) and rotation (rad) in one norm, is below
/// this. Refining goes on to `kRefinedError`, near the rounding of doubles.
inline constexpr double kReachedError = 1e-9;
inline constexpr double kRefinedError = 1e-14;

/// Returns the norm of the position error (m) and the rotation error (rad) at `q`.
double pose_error(const SixJointChain& chain, const Frame& target, const JointArray& q);

/// Refines joint angles towards a pose by damped Newton steps, at most `max_steps` of them. The
/// damping falls with the square of the error: far away and near singular poses the step is that of
/// gradient descent, near the solution that of Newton's method. Returns the error that is left.
/// Does not allocate.
/// @param q Start angles in, the best angles out, rad; the joint limits are ignored.
double refine(const SixJointChain& chain, const Frame& target, JointArray& q, int max_steps);

/// Whether the Jacobian loses a direction at `q`: the smallest pivot of JJᵀ is below `tolerance`.
bool is_singular(const SixJointChain& chain, const JointArray& q, double tolerance);

}  // namespace kelvara::kinematics
