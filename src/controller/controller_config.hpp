#pragma once

#include <string>

#include "controller/arm_facts.hpp"

namespace kelvara::controller {

struct PosVelModeConfig {
  JointArray max_acc_limits{};  // rad/s²; bounds the MIT reference too
  JointArray max_dec_limits{};  // rad/s²
  JointArray kp_apr_limits{};   // position-loop gain, 1/s
};

struct MitModeConfig {
  JointArray kp{};                  // N·m/rad
  JointArray kd{};                  // N·m·s/rad
  JointArray gravity_tau_limits{};  // N·m, ± clip of the feed-forward
  double gravity_comp_scale = 1.0;  // kept for applications; the loop does not apply it
};

struct JointTrajectoryConfig {
  JointArray max_vel_limits{};   // rad/s
  JointArray max_acc_limits{};   // rad/s²
  JointArray max_jerk_limits{};  // rad/s³
  double default_speed_percent = 0.1;
};

/// Each loader opens "robot_kinematics.yaml" afresh and reads one part of it. A file that cannot be
/// opened or parsed ends the process with status 1.
/// @throws std::runtime_error for a part that is missing or malformed.
PosVelModeConfig load_pos_vel_mode_config();
MitModeConfig load_mit_mode_config();
JointTrajectoryConfig load_joint_trajectory_config();
JointArray load_motor_signs_config();

}  // namespace kelvara::controller
