#pragma once

#include <array>
#include <cstddef>

#include "kelvara/damiao_motor/dm_motor_control.hpp"

/// What is fixed about this arm; everything tunable stands in the YAML file.
namespace kelvara::controller {

inline constexpr std::size_t kJointCount = 6;
using JointArray = std::array<double, kJointCount>;

inline constexpr std::array<damiao_motor::MotorType, kJointCount> kJointMotorTypes{
    damiao_motor::MotorType::V8_T28,  damiao_motor::MotorType::V8_T28,
    damiao_motor::MotorType::V8_T28,  damiao_motor::MotorType::V30_T10,
    damiao_motor::MotorType::V30_T10, damiao_motor::MotorType::V30_T10};
inline constexpr std::array<unsigned, kJointCount> kJointCanIds{1, 2, 3, 4, 5, 6};
inline constexpr std::array<unsigned, kJointCount> kJointMasterIds{0x11, 0x12, 0x13,
                                                                   0x14, 0x15, 0x16};
inline constexpr auto kGripperMotorType = damiao_motor::MotorType::V30_T10;
inline constexpr unsigned kGripperCanId = 7;
inline constexpr unsigned kGripperMasterId = 0x17;

/// Bound of every commanded joint velocity, rad/s.
inline constexpr JointArray kJointVelocityLimits{10.5, 10.5, 10.5, 15.0, 15.5, 15.5};
/// The pose that the arm is sent to at start-up.
inline constexpr JointArray kHomePose{};
inline constexpr double kHomingTime = 2.0;  // s
/// Joint 2 must not start below this: the arm would lie behind its base.
inline constexpr double kMinStartJoint2 = -1.57;  // rad

inline constexpr double kDefaultGripperSpeed = 8.0;  // MIT gain kp of the gripper motor
inline constexpr double kDefaultGripperForce = 0.1;  // MIT gain kd of the gripper motor

}  // namespace kelvara::controller
