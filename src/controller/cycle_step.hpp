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

/// The rest of a step of the feed-forward torque, which fades out.
struct TorqueFade {
  JointArray step{};  // N·m
  int cycles_left = 0;
};

/// All that one cycle measured, computed and sent.
struct CycleRecord {
  motion::TimePoint time;
  JointArray measured{};       // joint angles, rad
  motion::SetPoint set_point;  // joint side
  JointArray model_torque{};   // N·m, zero in position/velocity mode
  JointArray torque{};         // N·m, the model's inside its limits, and the rest of a step
  TorqueFade fade;
  int clipped = 0;  // joints whose torque was outside
  std::variant<MitCommands, PosVelCommands> sent;
};

/// Computes one cycle: evaluates the command, adds the model's torque in MIT mode and converts to
/// the motor side. A function of its arguments; any thread.
/// @param command A command that has begun.
/// @param before  The cycle before; null for the first one. Where a planned motion takes over from
///                an older kind of command, or a brake from a planned motion, the torque continues
///                from there: the feed-forward of the one has gravity alone.
CycleRecord compute_cycle(const motion::Command& command, const motion::Instant& instant,
                          const ControllerSetup& setup, const RobotKinematics& kinematics,
                          const CycleRecord* before = nullptr);

}  // namespace kelvara::controller
