#pragma once

#include <array>
#include <variant>

#include "controller/controller_setup.hpp"
#include "kelvara/damiao_motor/motor_values.hpp"

#include "motion/command.hpp"

namespace kelvara::controller {

// What a cycle sends to the joints' motors, motor side.
using MitCommands = std::array<damiao_motor::MITParam, kJointCount>;
using PosVelCommands = std::array<damiao_motor::POS_VELParam, kJointCount>;

/// All that one cycle measured, computed and sent.
struct CycleRecord {
  motion::TimePoint time;
  JointArray measured{};       // joint angles, rad
  motion::SetPoint set_point;  // joint side
  JointArray model_torque{};   // N·m, zero in position/velocity mode
  JointArray torque{};         // N·m, the model's inside its limits
  int clipped = 0;             // joints whose torque was outside
  std::variant<MitCommands, PosVelCommands> sent;
};

/// Computes one cycle: evaluates the command, adds the model's torque in MIT mode and converts to
/// the motor side. A function of its arguments; any thread.
/// @param command A command that has begun.
CycleRecord compute_cycle(const motion::Command& command, const motion::Instant& instant,
                          const ControllerSetup& setup, const RobotKinematics& kinematics);

}  // namespace kelvara::controller
