#include "controller/command_slot.hpp"

#include <algorithm>
#include <utility>

#include "controller/command_facts.hpp"

#include "description/timing.hpp"

namespace kelvara::controller {

using description::clamp;
using motion::PlannedMove;

namespace {

// Nothing has come for this long: the stream has ended.
constexpr double kStreamPauseS = 0.5;

}  // namespace

// ---- The application's threads --------------------------------------------

/// Swaps in a new command; leaves the old one in `command`.
void CommandSlot::replace(motion::Command& command, MotionOutcome outcome) {
  end(command_, outcome);
  drop_successor(outcome);
  std::swap(command_, command);
  ++number_;
  if (abandoned_) {
    end(command_, *abandoned_);
  }
  if (has_begun(command)) {
    retire(command);
  }
}

void CommandSlot::publish(motion::Command command) {
  // Destroyed after the lock is released, as is the argument, which takes the old command.
  Plans unused;
  const MutexLock lock(command_mutex);
  unused = take_unused();
  is_stream_stopped_ = false;
  replace(command, MotionOutcome::kReplaced);
}

bool CommandSlot::publish_instead(std::uint64_t number, motion::Command command) {
  Plans unused;
  const MutexLock lock(command_mutex);
  if (number_ != number || successor_ || std::holds_alternative<motion::Follow>(command_)) {
    return false;
  }
  unused = take_unused();
  is_stream_stopped_ = false;
  replace(command, MotionOutcome::kReplaced);
  return true;
}

bool CommandSlot::publish_at(std::uint64_t number, double time_s, PlannedMove next) {
  // The clock that the next snapshot continues from, and one cycle more for safety.
  constexpr double kAhead = 2.0 * description::kControlPeriodS;
  Plans unused;
  const MutexLock lock(command_mutex);
  const auto* const current = std::get_if<PlannedMove>(&command_);
  if (number_ != number || current == nullptr || current->stop_status || !current->started ||
      clock_.time_s + kAhead * clock_.rate > time_s) {
    return false;
  }
  unused = take_unused();
  drop_successor(MotionOutcome::kReplaced);
  is_stream_stopped_ = false;
  if (abandoned_) {
    next.motion->status->end(*abandoned_);
    return true;
  }
  next.started = true;
  successor_ = Successor{std::move(next), time_s};
  return true;
}

MotionStatus CommandSlot::stop(motion::StopMove stop, MotionOutcome outcome) {
  MotionStatus status = stop.status;
  motion::Command command(std::move(stop));
  Plans unused;
  const MutexLock lock(command_mutex);
  if (outcome == MotionOutcome::kStopped && now_s_ - last_target_.received_s < kStreamPauseS) {
    is_stream_stopped_ = true;
  }
  if (const auto* const current = std::get_if<motion::StopMove>(&command_)) {
    return current->status;
  }
  auto* const current = std::get_if<PlannedMove>(&command_);
  if (current == nullptr || !current->started) {
    std::get<motion::StopMove>(command).target = target_of(command_);
    unused = take_unused();
    replace(command, outcome);
    return status;
  }
  drop_successor(outcome);
  if (!current->stop_status) {
    current->stop_status = status;
    current->stop_outcome = outcome;
    if (abandoned_) {
      status->end(*abandoned_);
    }
  } else if (outcome == MotionOutcome::kStopped) {
    current->stop_outcome = outcome;
  }
  return current->stop_status;
}

bool CommandSlot::follow(const motion::Follow& stream, const motion::StampedTarget& target) {
  motion::Command command(stream);
  Plans unused;
  const MutexLock lock(command_mutex);
  is_stream_stopped_ = is_stream_stopped_ && target.time_s > last_target_.time_s;
  last_target_ = target;
  if (is_stream_stopped_) {
    return false;
  }
  if (auto* const current = std::get_if<motion::Follow>(&command_)) {
    current->append(target);
    return true;
  }
  std::get<motion::Follow>(command).append(target);
  unused = take_unused();
  replace(command, MotionOutcome::kReplaced);
  return true;
}

bool CommandSlot::follows_stream() const {
  const MutexLock lock(command_mutex);
  return std::holds_alternative<motion::Follow>(command_);
}

void CommandSlot::abandon(MotionOutcome outcome) {
  const MutexLock lock(command_mutex);
  abandoned_ = outcome;
  end(command_, outcome);
  drop_successor(outcome);
}

std::shared_ptr<const motion::PlannedMotion> CommandSlot::plan_of(std::uint64_t number) const {
  const MutexLock lock(command_mutex);
  const auto* const current = std::get_if<PlannedMove>(&command_);
  return number_ == number && current != nullptr && !current->stop_status ? current->motion
                                                                          : nullptr;
}

std::uint64_t CommandSlot::number() const {
  const MutexLock lock(command_mutex);
  return number_;
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

// ---- The control thread ---------------------------------------------------

CommandSnapshot CommandSlot::snapshot(const motion::Instant& instant) {
  const MutexLock lock(command_mutex);
  clock_ = instant.clock;
  now_s_ = instant.time_s;
  switch_to_successor(instant);
  if (!has_begun(command_)) {
    clock_ = {0.0, instant.speed_override, 0.0};
  }
  motion::begin(command_, instant);
  return {command_, number_, clock_, gripper_};
}

/// Continues on the successor's clock when the coming cycle reaches the time of the change.
void CommandSlot::switch_to_successor(const motion::Instant& instant) {
  const double coming = instant.clock.time_s + instant.clock.rate * description::kControlPeriodS;
  if (!successor_ || coming < successor_->time_s) {
    return;
  }
  end(command_, MotionOutcome::kReplaced);
  retire(command_);
  clock_.time_s -= successor_->time_s;
  command_ = std::move(successor_->move);
  successor_.reset();
  ++number_;
}

std::uint64_t CommandSlot::override_command(const motion::Command& next) {
  const MutexLock lock(command_mutex);
  end(command_, MotionOutcome::kFault);
  drop_successor(MotionOutcome::kFault);
  retire(command_);
  command_ = next;
  abandoned_.reset();
  return ++number_;
}

void CommandSlot::complete(std::uint64_t number, const motion::JointTarget& next,
                           MotionOutcome outcome) {
  const MutexLock lock(command_mutex);
  if (number_ != number) {
    return;
  }
  end(command_, outcome);
  drop_successor(MotionOutcome::kReplaced);
  retire(command_);
  command_ = next;
}

// ---- Plans that have left the slot ----------------------------------------

void CommandSlot::drop_successor(MotionOutcome outcome) {
  if (successor_) {
    successor_->move.motion->status->end(outcome);
    keep(std::move(successor_->move.motion));
    successor_.reset();
  }
}

void CommandSlot::keep(std::shared_ptr<const void> plan) {
  const auto free = std::find(retired_.begin(), retired_.end(), nullptr);
  if (plan != nullptr && free != retired_.end()) {
    *free = std::move(plan);
  }
}

/// Keeps the plan of a command that leaves the slot.
void CommandSlot::retire(const motion::Command& command) {
  keep(controller::plan_of(command));
  if (const auto* const move = std::get_if<PlannedMove>(&command)) {
    keep(move->stop_status);
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

}  // namespace kelvara::controller
