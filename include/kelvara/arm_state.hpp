#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <memory>

#include "kelvara/description/description_files.hpp"
#include "kelvara/export.hpp"

namespace kelvara {

/// What the arm is doing.
enum class ArmCondition {
  kStarting,          // being brought up, or recovering
  kHolding,           // at rest, holding its position
  kMoving,            // under way to a target
  kFloating,          // carries gravity alone; a hand can move it
  kStoppedByMonitor,  // a joint's torque was too high for too long: all motors are disabled
  kMotorFault,        // a motor reports an error, is disabled or does not answer
  kBusSilent,         // no joint motor answers
  kClosed,            // `cleanup()` has run: all motors are disabled
};

/// Why the arm is in its condition.
enum class StopReason {
  kNone,
  kTorqueLimit,    // the torque monitor stopped the arm
  kMotorError,     // a motor reports an error; see its `error_code`
  kMotorDisabled,  // a motor is disabled although the controller enabled it
  kMotorSilent,    // a motor has not answered for 0.1 s
  kBusSilent,      // no motor has answered for 0.1 s
  kClosed,         // the application has called `cleanup()`
};

/// The names in plain words, for example "stopped by the torque monitor"; never null.
KELVARA_EXPORT const char* to_string(ArmCondition condition);
KELVARA_EXPORT const char* to_string(StopReason reason);

/// What one motor last reported.
struct MotorState {
  bool answered = false;  // since the controller was constructed
  double feedback_age_s = std::numeric_limits<double>::infinity();
  int error_code = 0;                    // 0 disabled, 1 enabled, 8 and above an error
  const char* error_name = "No answer";  // of the code, once it has answered
  int mos_temperature = 0;               // of the driver, degrees Celsius
  int rotor_temperature = 0;             // degrees Celsius
};

/// The gripper; all zero without one.
struct GripperReading {
  bool fitted = false;
  bool valid = false;        // the motor has answered
  double position = 0.0;     // 0 closed to 1 open
  double distance_m = 0.0;   // jaw distance
  double command_m = 0.0;    // commanded jaw distance
  bool has_command = false;  // a command is being sent
};

/// Events since the controller was constructed.
struct ArmCounters {
  std::uint64_t late_cycles = 0;          // control cycles that began a period or more late
  std::uint64_t refused_frames = 0;       // frames that the CAN interface did not accept
  std::uint64_t foreign_commands = 0;     // frames of another program that command our motors
  std::uint64_t implausible_samples = 0;  // answers that no motor could have given
  std::uint64_t dropped_lines = 0;        // of the process: nobody read the standard streams
};

/// One coherent snapshot of the arm, made by the control thread at the end of a cycle. Joint values
/// are on the joint side, joint 1 first.
struct ArmState {
  double time_s = 0.0;                  // of the snapshot, on std::chrono::steady_clock
  std::array<double, 6> q{};            // measured angles, rad
  std::array<double, 6> dq{};           // measured velocities, rad/s
  std::array<double, 6> tau{};          // measured torques, N·m
  std::array<double, 6> q_command{};    // commanded angles, rad; while floating the measured ones
  std::array<double, 6> dq_command{};   // commanded velocities, rad/s
  std::array<double, 6> tau_command{};  // feed-forward torques, N·m; 0 in position/velocity mode
  GripperReading gripper;
  std::array<MotorState, 7> motors;  // joints 1 to 6, gripper
  ArmCondition condition = ArmCondition::kStarting;
  StopReason reason = StopReason::kNone;
  int reason_motor = 0;   // 1 to 7; 0: none in particular
  double progress = 1.0;  // of the current motion, 0 to 1
  ArmCounters counters;
  /// The two files in use; null before the controller is constructed.
  std::shared_ptr<const DescriptionFiles> files;
};

}  // namespace kelvara
