#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "controller/thread_safety.hpp"

#include "description/gripper_facts.hpp"
#include "motion/command.hpp"

namespace kelvara::controller {

using MotionStatus = std::shared_ptr<MotionHandle::Status>;

/// The gripper's current command, sent every 5 ms once set.
struct GripperCommand {
  double gripper_target_distance = 0.0;                      // m
  double gripper_speed = description::kDefaultGripperSpeed;  // N·m/rad
  double gripper_force = description::kDefaultGripperForce;  // N·m·s/rad
  bool gripper_command_valid = false;
  bool gripper_command_active = false;
};

/// A copy of the slot for one cycle.
struct CommandSnapshot {
  motion::Command command;
  std::uint64_t number = 0;  // of the command
  motion::PlanClock clock;   // of the plan that the command executes
  GripperCommand gripper;
};

/// Holds the current command of the arm and that of the gripper. The application's threads
/// write it (the last writer wins, there is no queue), the control thread copies it in every cycle.
///
/// A plan can be large, and freeing it takes milliseconds. So that the control thread never frees
/// one, the slot keeps each plan that a snapshot may hold or that the control thread replaces,
/// until a later `publish` finds it unused, or until the slot is destroyed.
class CommandSlot {
 public:
  /// Replaces the arm's command. Plans that nothing uses any more are freed on this thread, after
  /// the lock is released.
  void publish(motion::Command command) KELVARA_EXCLUDES(command_mutex);
  /// Replaces the command `number`.
  /// @return false when another command has replaced it already.
  bool publish_instead(std::uint64_t number, motion::Command command)
      KELVARA_EXCLUDES(command_mutex);
  /// Replaces the plan that is command `number` when its clock reaches `time_s`, there without a
  /// step.
  /// @return false when another command has replaced that plan, it brakes, or its clock has passed.
  bool publish_at(std::uint64_t number, double time_s, motion::PlannedMove next)
      KELVARA_EXCLUDES(command_mutex);
  /// Lets a plan brake on its path; replaces any other command by `stop`, unless it is one.
  /// @param outcome How the motion that is braked ends; `kStopped` stops a stream as well.
  /// @return the status that ends when the arm is at rest.
  MotionStatus stop(motion::StopMove stop, MotionOutcome outcome) KELVARA_EXCLUDES(command_mutex);
  /// Adds a target to the stream; replaces any other command by `stream` with that target.
  /// @return false for a target of a stream that was stopped and goes on: another command, or a
  ///         stamp that starts the stream again, ends that.
  bool follow(const motion::Follow& stream, const motion::StampedTarget& target)
      KELVARA_EXCLUDES(command_mutex);
  /// Whether the command follows a stream.
  bool follows_stream() const KELVARA_EXCLUDES(command_mutex);
  /// Ends what waits for the current motion, and for any later one until the control thread
  /// overrides the command: nobody executes it.
  void abandon(MotionOutcome outcome) KELVARA_EXCLUDES(command_mutex);
  /// The plan that is command `number`; null when that is no plan, or one that brakes.
  std::shared_ptr<const motion::PlannedMotion> plan_of(std::uint64_t number) const
      KELVARA_EXCLUDES(command_mutex);
  /// The current command's.
  std::uint64_t number() const KELVARA_EXCLUDES(command_mutex);
  /// Replaces the gripper's target and keeps its speed and force.
  /// @param d Jaw distance, m, clamped to the gripper's range.
  void publish_gripper_distance_command(double d) KELVARA_EXCLUDES(command_mutex);
  /// @param speed,force Gains of the gripper's motor, clamped to [0.1, 20] and [0.1, 1].
  void publish_gripper_distance_command(double d, double speed, double force)
      KELVARA_EXCLUDES(command_mutex);

  /// Begins a command that has not begun, and copies the slot.
  CommandSnapshot snapshot(const motion::Instant& instant) KELVARA_EXCLUDES(command_mutex);
  /// Replaces a command that has ended, unless a newer one has replaced it already.
  /// @param number The snapshot's number of the command that has ended.
  void complete(std::uint64_t number, const motion::JointTarget& next,
                MotionOutcome outcome = MotionOutcome::kDone) KELVARA_EXCLUDES(command_mutex);
  /// Replaces the command whatever it is, from the control thread; returns the new number.
  std::uint64_t override_command(const motion::Command& next) KELVARA_EXCLUDES(command_mutex);

 private:
  using Plans = std::array<std::shared_ptr<const void>, 8>;
  /// A plan that takes over at a time of its predecessor's clock.
  struct Successor {
    motion::PlannedMove move;
    double time_s = 0.0;
  };

  void replace(motion::Command& command, MotionOutcome outcome) KELVARA_REQUIRES(command_mutex);
  void switch_to_successor(const motion::Instant& instant) KELVARA_REQUIRES(command_mutex);
  void drop_successor(MotionOutcome outcome) KELVARA_REQUIRES(command_mutex);
  void keep(std::shared_ptr<const void> plan) KELVARA_REQUIRES(command_mutex);
  void retire(const motion::Command& command) KELVARA_REQUIRES(command_mutex);
  Plans take_unused() KELVARA_REQUIRES(command_mutex);

  mutable Mutex command_mutex;
  motion::Command command_ KELVARA_GUARDED_BY(command_mutex);
  /// Sequence number; lets the end of a move detect that a newer command has replaced it.
  std::uint64_t number_ KELVARA_GUARDED_BY(command_mutex) = 0;
  std::optional<MotionOutcome> abandoned_ KELVARA_GUARDED_BY(command_mutex);
  std::optional<Successor> successor_ KELVARA_GUARDED_BY(command_mutex);
  motion::PlanClock clock_ KELVARA_GUARDED_BY(command_mutex);  // as of the last snapshot
  bool is_stream_stopped_ KELVARA_GUARDED_BY(command_mutex) = false;
  motion::StampedTarget last_target_ KELVARA_GUARDED_BY(command_mutex){-1e300, -1e9, {}};
  double now_s_ KELVARA_GUARDED_BY(command_mutex) = 0.0;  // as of the last snapshot
  /// Plans that have left the slot. Four would be enough: a publish leaves two at most (a plan,
  /// which the cycle in progress uses, and its successor), and only one plan and its successor can
  /// end or be overridden before the next publish.
  Plans retired_ KELVARA_GUARDED_BY(command_mutex);
  GripperCommand gripper_ KELVARA_GUARDED_BY(command_mutex);
};

}  // namespace kelvara::controller
