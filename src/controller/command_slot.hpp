#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "controller/arm_facts.hpp"

namespace kelvara::controller {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

/// One sample of a planned trajectory, one control period long.
struct WaypointTrajectorySample {
  JointArray q;    // rad
  JointArray dq;   // rad/s
  JointArray ddq;  // rad/s²
};
using WaypointSamples = std::shared_ptr<const std::vector<WaypointTrajectorySample>>;

/// The values of `CommandSlot::command_type`.
enum CommandType : int {
  kNoCommand = 0,
  kJointTarget = 1,
  kSmoothMove = 2,
  kWaypointTrajectory = 3,
  kRegressorGravity = 4,
  kChainGravity = 5,
};

/// The one standing command: written by the application's threads, copied by every control cycle.
struct CommandSlot {
  int command_type = kNoCommand;
  /// Counts commands, so that the end of a move does not replace a command that came meanwhile.
  std::uint64_t command_number = 0;

  JointArray target_q{};   // rad, inside the joint limits
  JointArray target_dq{};  // rad/s

  JointArray traj_start_q{};  // rad
  double traj_duration_s = 0.0;
  bool traj_started = false;
  TimePoint traj_start_time{};

  WaypointSamples waypoints;
  double waypoint_dt_s = 0.0;
  bool waypoints_started = false;
  TimePoint waypoints_start_time{};

  double gripper_target_distance = 0.0;  // m
  double gripper_speed = kDefaultGripperSpeed;
  double gripper_force = kDefaultGripperForce;
  bool gripper_command_valid = false;
  bool gripper_command_active = false;

  /// What every new arm command starts with: its type, and no trajectory under way.
  void begin_command(CommandType type) {
    command_type = type;
    ++command_number;
    traj_started = false;
    waypoints_started = false;
    waypoints.reset();
  }
};

}  // namespace kelvara::controller
