#pragma once

#include "controller/command_slot.hpp"
#include "controller/cycle_step.hpp"
#include "kelvara/hardware/kelvara.hpp"

namespace kelvara::controller {

/// Sends what a cycle has computed to the motors. The control thread alone uses it.
class CommandSender {
 public:
  /// All must outlive it.
  CommandSender(can::socket::Kelvara& hardware, const ControllerSetup& setup)
      : hardware_(hardware), setup_(setup) {}

  void begin(motion::TimePoint start) { next_gripper_send = start; }
  /// One frame to each joint; while floating, one to the gripper, which is then limp.
  void send(const CycleRecord& record);
  /// Every 5 ms while the gripper has a command.
  void send_gripper(const GripperCommand& command, motion::TimePoint now);

 private:
  void warn_of_floating();

  can::socket::Kelvara& hardware_;
  const ControllerSetup& setup_;
  bool pos_vel_gravity_warned = false;
  motion::TimePoint next_gripper_send{};
};

}  // namespace kelvara::controller
