#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "description/joint_array.hpp"

namespace kelvara::description {

struct PosVelModeConfig {
  JointArray max_acc_limits{};  // rad/s²; bounds the MIT reference too
  JointArray max_dec_limits{};  // rad/s²
  JointArray kp_apr_limits{};   // position-loop gain, 1/s
};

struct MitModeConfig {
  JointArray kp{};                  // N·m/rad
  JointArray kd{};                  // N·m·s/rad
  JointArray gravity_tau_limits{};  // N·m, ± clip of the feed-forward
  double gravity_comp_scale = 1.0;  // checked, not applied
};

/// Limits of waypoint moves; timed moves have none.
struct JointTrajectoryConfig {
  JointArray max_vel_limits{};   // rad/s
  JointArray max_acc_limits{};   // rad/s²
  JointArray max_jerk_limits{};  // rad/s³
  double default_speed_percent = 0.1;
};

/// What the controller reads of the YAML file.
struct ControllerSettings {
  std::string path;  // of the file
  PosVelModeConfig pos_vel;
  MitModeConfig mit;
  JointTrajectoryConfig joint_trajectory;
  JointArray motor_signs{};  // as read: see MotorSigns
  /// One line for each setting that a frame cannot carry as it is.
  std::vector<std::string> reports;
};

/// The YAML file cannot be opened or parsed.
class UnreadableFile : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Finds "robot_kinematics.yaml", opens it once and reads the controller's four parts of it.
/// @throws UnreadableFile when the file cannot be opened or parsed.
/// @throws std::runtime_error for a part that is missing or malformed, and for a gain or limit that
///         is negative or NaN.
ControllerSettings load_controller_settings();

}  // namespace kelvara::description
