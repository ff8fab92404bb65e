#include "controller/command_slot.hpp"

#include <algorithm>
#include <utility>

namespace kelvara::controller {

using description::clamp;

namespace {

/// Whether a snapshot may hold what the command holds: the first one begins it.
bool has_begun(const motion::Command& command) {
  const auto* const move = std::get_if<motion::WaypointMove>(&command);
  return move != nullptr && move->waypoints_started;
}

}  // namespace

void CommandSlot::publish(motion::Command command) {
  // Destroyed after the lock is released, as is the argument, which takes the old command.
  Plans unused;
  const MutexLock lock(command_mutex);
  std::swap(command_, command);
  ++number_;
  unused = take_unused();
  if (has_begun(command)) {
    retire(command);
  }
}

std::uint64_t CommandSlot::number() const {
  const MutexLock lock(command_mutex);
  return number_;
}

/// Keeps the plan of a command that leaves the slot.
void CommandSlot::retire(motion::Command& command) {
  auto* const move = std::get_if<motion::WaypointMove>(&command);
  const auto free = std::find(retired_.begin(), retired_.end(), nullptr);
  if (move != nullptr && free != retired_.end()) {
    *free = std::move(move->waypoints);
  }
}

/// The retired plans that no snapshot holds.
CommandSlot::Plans CommandSlot::take_unused() {
  Plans unused;
  for (std::size_t i = 0; i < retired_.size(); ++i) {
    if (retired_[i].use_count() == 1) {
      unused[i] = std::move(retired_[i]);
    }
  }
  return unused;
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

std::uint64_t CommandSlot::override_command(const motion::Command& next) {
  const MutexLock lock(command_mutex);
  retire(command_);
  command_ = next;
  return ++number_;
}

void CommandSlot::complete(std::uint64_t number, const motion::JointTarget& next) {
  const MutexLock lock(command_mutex);
  if (number_ == number) {
    retire(command_);
    command_ = next;
  }
}

}  // namespace kelvara::controller
