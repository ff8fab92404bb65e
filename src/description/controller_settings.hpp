#pragma once

#include <string>
#include <vector>

#include "description/joint_array.hpp"
#include "description/yaml_file.hpp"

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
  double gravity_comp_scale = 1.0;  // checked to be a number, not applied
};

/// Limits of waypoint moves; timed moves have none.
struct JointTrajectoryConfig {
  JointArray max_vel_limits{};         // rad/s
  JointArray max_acc_limits{};         // rad/s²
  JointArray max_jerk_limits{};        // rad/s³
  double default_speed_percent = 0.1;  // fraction of the limits, (0, 1]
};

/// What the joints' drives add to the links' dynamics; zero when the file has no such part or key.
struct JointDynamicsConfig {
  JointArray rotor_inertia{};     // kg·m², reflected at the joint
  JointArray viscous_friction{};  // N·m·s/rad
  JointArray coulomb_friction{};  // N·m
};

/// The controller's parts of the YAML file.
struct ControllerSettings {
  PosVelModeConfig pos_vel;
  MitModeConfig mit;
  JointTrajectoryConfig joint_trajectory;
  JointArray motor_signs{};  // as read: see MotorSigns
  JointDynamicsConfig joint_dynamics;
  /// One line for each setting that a frame cannot carry as it is.
  std::vector<std::string> reports;
};

/// Opens a YAML file once and reads the parts `pos_vel_mode`, `mit_mode`, `joint_trajectory`,
/// `motor_signs` and, if it is there, `joint_dynamics`, in this order.
/// @throws UnreadableFile when the file cannot be opened or parsed.
/// @throws std::runtime_error for a field that is missing or malformed, for a negative or NaN limit
///         or gain of `pos_vel_mode` and `mit_mode`, for a default speed outside (0, 1], and for a
///         negative, infinite or NaN value of `joint_dynamics`.
ControllerSettings load_controller_settings(const std::string& path);

}  // namespace kelvara::description
