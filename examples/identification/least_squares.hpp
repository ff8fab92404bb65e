#pragma once

#include <Eigen/Core>

#include "identification/motion.hpp"

/// Estimates inertial parameters and the joints' friction from measured torques.
namespace identification {

/// Parameters that reproduce the torques: the links' inertial parameters in the regressor's order,
/// then per joint the viscous friction (N·m·s/rad), the dry friction (N·m) and the rotor's inertia
/// (kg·m²). Only some combinations of them are identifiable; this is one of the sets that give the
/// same torques.
struct Estimate {
  static constexpr int kInertialCount = 60;

  Eigen::VectorXd parameters;
  Eigen::Index base_parameters = 0;  // number of identifiable combinations

  double viscous_friction(int joint) const { return parameters[kInertialCount + joint]; }
  double dry_friction(int joint) const { return parameters[kInertialCount + 6 + joint]; }
};

/// @throws std::runtime_error when a joint's torque is constant.
Estimate estimate(const Motion& motion);

/// The torques (N·m) that the parameters give for the motion, one row for each instant.
Rows predict(const Motion& motion, const Eigen::VectorXd& parameters);

}  // namespace identification
