#pragma once

#include <algorithm>
#include <array>
#include <cstddef>

#include "kelvara/damiao_motor/motor_type.hpp"

#include "description/joint_array.hpp"

/// What is fixed about this arm, one row per joint. Everything tunable is in the YAML file.
namespace kelvara::description {

/// One joint's motor and its limits.
struct JointFacts {
  damiao_motor::MotorType motor_type;
  unsigned can_id;     // the motor is commanded on it
  unsigned master_id;  // the motor's feedback carries it
  /// Bound of the MIT reference's velocity and of the velocity limits that position/velocity frames
  /// carry, rad/s. The feed-forward of streamed poses has limits of its own (last two columns);
  /// waypoint moves have theirs in the YAML file.
  double velocity_limit;
  double torque_threshold;           // N·m; the average torque that counts as too high
  double stream_velocity_limit;      // rad/s, feed-forward of streamed poses
  double stream_acceleration_limit;  // rad/s², feed-forward of streamed poses
};

inline constexpr auto kLargeMotor = damiao_motor::MotorType::V8_T28;
inline constexpr auto kSmallMotor = damiao_motor::MotorType::V30_T10;

inline constexpr std::array<JointFacts, kJointCount> kJoints{{
    {kLargeMotor, 1, 0x11, 10.5, 20.0, 5.2, 35.0},
    {kLargeMotor, 2, 0x12, 10.5, 20.0, 5.2, 18.0},
    {kLargeMotor, 3, 0x13, 10.5, 20.0, 5.2, 87.0},
    {kSmallMotor, 4, 0x14, 15.0, 8.0, 20.9, 300.0},
    {kSmallMotor, 5, 0x15, 15.5, 6.0, 20.9, 300.0},
    {kSmallMotor, 6, 0x16, 15.5, 6.0, 20.9, 300.0},
}};

static_assert(std::all_of(kJoints.begin(), kJoints.end(),
                          [](const JointFacts& joint) {
                            return static_cast<std::size_t>(joint.motor_type) <
                                   damiao_motor::MOTOR_LIMIT_PARAMS.size();
                          }),
              "every joint's motor model has a row in MOTOR_LIMIT_PARAMS");

/// One column of the table, for example `column(&JointFacts::velocity_limit)`.
template <typename Value>
constexpr std::array<Value, kJointCount> column(Value JointFacts::*member) {
  std::array<Value, kJointCount> values{};
  for (std::size_t i = 0; i < kJointCount; ++i) {
    values[i] = kJoints[i].*member;
  }
  return values;
}

/// The pose that the arm is sent to at start-up, and the duration of that move.
inline constexpr JointArray kHomePose{};
inline constexpr double kHomingTimeS = 2.0;
/// Joint 2 must not start below this: the arm would lie behind its base.
inline constexpr double kMinStartJoint2 = -1.57;  // rad

}  // namespace kelvara::description
