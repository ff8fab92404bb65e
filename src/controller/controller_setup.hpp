#pragma once

#include "kelvara/damiao_motor/motor_values.hpp"

#include "description/controller_settings.hpp"
#include "description/motor_signs.hpp"
#include "motion/setpoint.hpp"

class RobotKinematics;

namespace kelvara::controller {

/// What is fixed once the controller has been constructed.
struct ControllerSetup {
  bool has_gripper = false;
  damiao_motor::ControlMode control_mode = damiao_motor::MIT_MODE;
  description::PosVelModeConfig pos_vel;
  description::MitModeConfig mit;
  description::JointTrajectoryConfig joint_trajectory;
  description::MotorSigns motor_signs;
  motion::SetPointLimits limits;

  bool uses_pos_vel_mode() const { return control_mode == damiao_motor::POS_VEL_MODE; }
};

/// Reads and checks the settings, and reports on standard error those that a frame cannot carry.
/// A file that cannot be opened or parsed ends the process with status 1.
/// @throws std::invalid_argument for another mode, or motor signs other than +1 and -1.
/// @throws std::runtime_error for a malformed file, another number of joints, and masses, inertias
///         or lengths that are not finite.
ControllerSetup load_setup(bool with_gripper, damiao_motor::ControlMode mode,
                           const RobotKinematics& kinematics);

}  // namespace kelvara::controller
