#pragma once

#include <iosfwd>

#include <kelvara/kinematics/kinematics.hpp>

#include "identification/motion.hpp"

/// Estimates what the joints' drives add to the torques of the model.
namespace identification {

struct Drives {
  Joints rotor_inertia;     // kg·m², at the joint
  Joints viscous_friction;  // N·m·s/rad
  Joints coulomb_friction;  // N·m
};

/// The model's inverse dynamics along the motion, N·m, one row for each instant.
Rows model_torques(const Motion& motion, const RobotKinematics& model);

/// Fits what remains of the measured torques after the model's, joint by joint. Negative estimates,
/// which result only from noise or a wrong model, are set to zero.
Drives fit_drives(const Motion& motion, const Rows& model);

/// The torques (N·m) that the drives add to the model's, one row for each instant.
Rows drive_torques(const Motion& motion, const Drives& drives);

/// Prints the part `joint_dynamics` of the settings file.
void print_settings(std::ostream& out, const Drives& drives);

}  // namespace identification
