#pragma once

#include "kelvara/damiao_motor/motor_type.hpp"

/// What is fixed about the gripper.
namespace kelvara::description {

inline constexpr auto kGripperMotorType = damiao_motor::MotorType::V30_T10;
inline constexpr unsigned kGripperCanId = 7;
inline constexpr unsigned kGripperMasterId = 0x17;

inline constexpr double kMaxJawDistance = 0.085;  // m, fully open

// The calls' speed and force are the gains kp and kd of the gripper motor's MIT commands.
inline constexpr double kDefaultGripperSpeed = 8.0;  // N·m/rad
inline constexpr double kMinGripperSpeed = 0.1;
inline constexpr double kMaxGripperSpeed = 20.0;
inline constexpr double kDefaultGripperForce = 0.1;  // N·m·s/rad
inline constexpr double kMinGripperForce = 0.1;
inline constexpr double kMaxGripperForce = 1.0;

}  // namespace kelvara::description
