#pragma once

#include <Eigen/Core>

#include "kinematics/screw_motion.hpp"

namespace kelvara::kinematics {

/// A pose, and when the search for its joint angles ends.
struct JacobianTarget {
  Eigen::Vector3d position;  // m
  Eigen::Vector3d euler;     // roll, pitch, yaw, rad
  double threshold_pos;      // position error that counts as solved, m
  double threshold_rot;      // orientation error that counts as solved, rad
  int max_iterations;        // updates at most
  double damping;            // added to the diagonal of JᵀJ
};

/// Solves the inverse kinematics by damped least squares on a numerical Jacobian. Allocates before
/// the first iteration only. Any threads at once.
/// @param q Start angles in, rad; the solution or the last iterate out, inside [-π, π].
/// @return false, with a line on standard error, when the solution does not converge.
/// @throws std::runtime_error for a wrong number of angles, unless no iteration is allowed.
bool solve_jacobian_ik(const ScrewMotion& motion, const JacobianTarget& target,
                       Eigen::Map<Eigen::VectorXd> q);

}  // namespace kelvara::kinematics
