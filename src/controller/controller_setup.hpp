#pragma once

#include "kelvara/arm_options.hpp"
#include "kelvara/motion/planner.hpp"

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
  description::JointDynamicsConfig joint_dynamics;
  motion::SetPointLimits limits;
  MotionLimits motion;  // of plans
  // Of a start with options; without them as below:
  bool started_with_options = false;
  bool require_all_motors = false;
  FaultReaction on_fault = FaultReaction::kReport;

  bool uses_pos_vel_mode() const { return control_mode == damiao_motor::POS_VEL_MODE; }
};

/// What an application asks of the set-up.
struct SetupRequest {
  bool with_gripper = false;
  damiao_motor::ControlMode mode = damiao_motor::MIT_MODE;
  bool require_limits = false;  // refuse a joint without two limits, unless it is continuous
  bool exit_on_unreadable_file = true;  // end the process; otherwise throw
  double velocity_scale = 0.0;          // fraction of the velocity limits; 0: no ceiling
  bool started_with_options = false;    // as are the two below
  bool require_all_motors = false;
  FaultReaction on_fault = FaultReaction::kReport;
};

/// Reads the settings from the model's own file, checks both, and reports on standard error gains
/// that a frame cannot carry, joints without limits, and the payload of a gripper that is not
/// fitted. A settings file that can no longer be opened or parsed ends the process with status 1,
/// or throws.
/// @throws std::invalid_argument for another mode, or motor signs other than +1 and -1.
/// @throws std::runtime_error for a malformed file, another number of joints, a joint that does not
///         turn, limits that are swapped (or missing, where they are required), and masses,
///         inertias or lengths that are not finite.
ControllerSetup load_setup(const SetupRequest& request, const RobotKinematics& kinematics);

}  // namespace kelvara::controller
