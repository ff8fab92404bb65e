#include "controller/command_slot.hpp"

#include <utility>

namespace kelvara::controller {

using description::clamp;

void CommandSlot::publish(motion::Command command) {
  // The swap moves the old command into the argument, which is destroyed after the lock is
  // released.
  const MutexLock lock(command_mutex);
  std::swap(command_, command);
  ++number_;
}

void CommandSlot::publish_gripper_distance_command(double d) {
  const MutexLock lock(command_mutex);
  gripper_.gripper_target_distance = clamp(d, 0.0, description::kMaxJawDistance);
  gripper_.gripper_command_valid = true;
  gripper_.gripper_command_active = true;
}

void CommandSlot::publish_gripper_distance_command(double d, double speed, double force) {
  const MutexLock lock(command_mutex);
  gripper_ = {
      .gripper_target_distance = clamp(d, 0.0, description::kMaxJawDistance),
      .gripper_speed = clamp(speed, description::kMinGripperSpeed, description::kMaxGripperSpeed),
      .gripper_force = clamp(force, description::kMinGripperForce, description::kMaxGripperForce),
      .gripper_command_valid = true,
      .gripper_command_active = true};
}

CommandSnapshot CommandSlot::snapshot(const JointArray& measured, motion::TimePoint now) {
  const MutexLock lock(command_mutex);
  motion::begin(command_, measured, now);
  return {command_, number_, gripper_};
}

std::uint64_t CommandSlot::override_command(const motion::JointTarget& next) {
  const MutexLock lock(command_mutex);
  command_ = next;
  return ++number_;
}

void CommandSlot::complete(std::uint64_t number, const motion::JointTarget& next) {
  const MutexLock lock(command_mutex);
  if (number_ == number) {
    command_ = next;
  }
}

}  // namespace kelvara::controller
