#pragma once

#include <string>

#include "kelvara/damiao_motor/dm_motor_control.hpp"

namespace kelvara {

/// What the controller does when a motor reports an error, disables itself or falls silent.
enum class FaultReaction {
  kReport,   // prints a line; the other motors continue with the current command
  kHold,     // brakes the other motors to a hold; refuses commands until `recover()`
  kDisable,  // disables every motor (an arm without brakes sinks); refuses commands until
             // `recover()`
};

/// How an `ArmController` is started. By default the arm holds where it is; its speed is limited by
/// the joints' velocity limits alone, which is fast.
struct ArmOptions {
  std::string interface = "can0";  // name of the CAN interface; must be up
  bool can_fd = false;             // true: CAN-FD frames; false: classic ones
  damiao_motor::ControlMode mode = damiao_motor::MIT_MODE;
  bool with_gripper = false;  // a gripper motor is fitted

  /// The URDF and the YAML file; empty: those that the library finds next to itself or in the
  /// working directory.
  std::string urdf_path;
  std::string settings_path;

  bool go_home = false;  // move to the all-zero pose in 2 s (or as the ceiling below allows)
  /// Refuse to start when a motor does not answer as an enabled one. false: a motor that receives
  /// frames but is not heard is held at 0 rad, wherever it is.
  bool require_all_motors = true;
  FaultReaction on_fault = FaultReaction::kHold;
  /// Ceiling of every command's speed, as a fraction of the joints' velocity limits (10.5 rad/s for
  /// joints 1 to 3, 15 for joint 4, 15.5 for joints 5 and 6), (0, 1]. A move that would be
  /// faster takes longer; a plan given to `execute` is refused.
  double velocity_scale = 1.0;

  // Real time. A failure to get one of these is reported on standard error and is not fatal.
  int realtime_priority = 0;  // SCHED_FIFO priority of the control thread, 1 to 99; 0: ordinary
  int cpu = -1;               // the processor that the control thread runs on; -1: any
  bool lock_memory = false;   // keep the process's memory from being paged out
};

}  // namespace kelvara
