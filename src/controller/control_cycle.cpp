#include "controller/control_cycle.hpp"

#include <algorithm>
#include <cmath>
#include <exception>

#include "description/timing.hpp"
#include "diagnostics/line.hpp"

namespace kelvara::controller {
namespace {

using diagnostics::error_line;
using motion::TimePoint;

// Feedback older than this is no place to start a motion from.
constexpr double kStaleS = 0.05;

}  // namespace

ControlCycle::ControlCycle(const Parts& parts)
    : parts_(parts),
      reader_(parts.hardware, parts.setup, parts.feedback, parts.state),
      sender_(parts.hardware, parts.setup),
      recovery_(parts.hardware, parts.setup, parts.feedback) {}

void ControlCycle::begin(TimePoint start) {
  reader_.begin(start);
  sender_.begin(start);
  watch_.begin(start);
  last_cycle_ = start;
  next_clip_report = start;
}

void ControlCycle::publish_first_state(TimePoint now) {
  reader_.publish();
  record_.set_point.q = reader_.measured().q;
  parts_.state.publish_start(reader_.measured().q, {});
  publish_state(now);
}

void ControlCycle::run_cycle(TimePoint now) {
  try {
    run_steps(now);
  } catch (const std::exception& error) {
    error_line() << "[control_loop] exception: " << error.what();
  }
}

void ControlCycle::skip(motion::Clock::duration late, TimePoint now) {
  // The motions continue one period after the last cycle.
  const TimePoint due = now - description::kControlPeriod;
  skipped_ += std::max(motion::Clock::duration::zero(), due - last_cycle_);
  last_cycle_ = due;
  watch_.begin(now);  // no feedback was requested meanwhile
  error_line() << "[control_loop] late by " << std::chrono::duration<double>(late).count()
               << " s: the schedule and the motion continue from here";
}

void ControlCycle::run_steps(TimePoint now) {
  const bool has_feedback = reader_.update(now);
  if (parts_.flags.emergency_stop_flag) {
    stop_for_emergency(now);
    return;
  }
  if (parts_.flags.recovery == StopFlags::Recovery::kRequested) {
    begin_recovery(now);
  }
  if (parts_.flags.recovery == StopFlags::Recovery::kRunning) {
    step_recovery(has_feedback, now);
  } else {
    if (has_feedback && !watch_faults(now)) {
      return;
    }
    command_arm(now);
  }
  report_clipping(now);
  report_bus(now);
  publish_state(now);
}

// ---- Commands -------------------------------------------------------------

void ControlCycle::command_arm(TimePoint now) {
  motion::Instant instant = instant_at(now);
  CommandSnapshot snapshot = parts_.slot.snapshot(instant);
  if (parts_.flags.faulted && snapshot.number != hold_number_) {
    hold_others();  // a command came at the same time as the fault
    snapshot = parts_.slot.snapshot(instant);
  }
  instant.clock = snapshot.clock;
  const bool follows_reference = instant.reference.mit_ref_initialised &&
                                 std::holds_alternative<motion::JointTarget>(snapshot.command);
  if (snapshot.number != last_number_ && !follows_reference) {
    report_stale_start(now);
  }
  last_number_ = snapshot.number;
  gripper_ = snapshot.gripper;
  record_ = compute_cycle(snapshot.command, instant, parts_.setup, parts_.kinematics,
                          started_ ? &record_ : nullptr);
  const std::uint64_t refused = parts_.hardware.get_socket().refused_frames();
  sender_.send(record_);
  if (parts_.hardware.get_socket().refused_frames() != refused) {
    stand_still(instant, now);
  } else {
    note_standing();
    complete(snapshot);
  }
  last_cycle_ = now;
  sender_.send_gripper(snapshot.gripper, now);
  started_ = true;
  commanded_.reset();
  if (!record_.set_point.torque_only) {
    commanded_ = record_.set_point.q;
  }
}

motion::Instant ControlCycle::instant_at(TimePoint now) {
  const JointArray start = start_positions(now);
  if (!started_) {
    standing_ = {start, {}, {}};
  }
  return {now - skipped_,
          start,
          record_.set_point.reference,
          record_.set_point.clock,
          standing_,
          parts_.flags.speed_override,
          std::chrono::duration<double>(now.time_since_epoch()).count(),
          now - last_cycle_ < description::kControlPeriod / 2};
}

/// Where the next motion begins. In position/velocity mode a target is commanded at once and the
/// motors are on their way to it.
void ControlCycle::note_standing() {
  const motion::SetPoint& point = record_.set_point;
  const bool is_far_target =
      parts_.setup.uses_pos_vel_mode() && point.moving && !point.full_dynamics;
  const JointArray before = standing_.dq;
  standing_ = {point.q, point.dq, point.model_ddq};
  if (point.torque_only || is_far_target) {
    standing_ = {reader_.measured().q, reader_.measured().dq, {}};
  } else if (!point.full_dynamics) {
    for (std::size_t i = 0; i < kJointCount; ++i) {
      const double limit = parts_.setup.joint_trajectory.max_acc_limits[i];
      standing_.ddq[i] = description::clamp(
          (point.dq[i] - before[i]) / description::kControlPeriodS, -limit, limit);
    }
  }
}

/// Hands a command that has ended over to a hold, and publishes where the command stands.
void ControlCycle::complete(const CommandSnapshot& snapshot) {
  const motion::SetPoint& point = record_.set_point;
  report_to_handles(snapshot.command);
  if (point.end) {
    const bool holds_anywhere = point.full_dynamics;
    parts_.slot.complete(snapshot.number, {.target_q = *point.end, .is_hold = holds_anywhere},
                         point.ended_early ? MotionOutcome::kStopped : MotionOutcome::kDone);
  }
  parts_.state.publish_standing(
      {snapshot.number, standing_, point.clock, point.moving, point.torque_only, true});
}

/// Progress of the motion that the arm executes, and its distance to the end of the last one.
void ControlCycle::report_to_handles(const motion::Command& command) {
  if (const auto* const move = std::get_if<motion::PlannedMove>(&command)) {
    settling_ = move->stop_status ? move->stop_status : move->motion->status;
    settling_at_ = move->stop_status ? record_.set_point.q : move->motion->plan.samples().back().q;
    move->motion->status->progress = record_.set_point.progress;
  } else if (const auto* const stop = std::get_if<motion::StopMove>(&command)) {
    settling_ = stop->status;
    settling_at_ = record_.set_point.q;
  } else if (!std::holds_alternative<motion::JointTarget>(command)) {
    settling_.reset();
  }
  if (settling_) {
    double distance = 0.0;
    for (std::size_t i = 0; i < kJointCount; ++i) {
      distance = std::max(distance, std::abs(settling_at_[i] - reader_.measured().q[i]));
    }
    settling_->distance = distance;
  }
}

/// Stops the clock of the motions for a cycle whose frames the interface has refused: the next
/// command that the motors get follows the last one that they got.
void ControlCycle::stand_still(const motion::Instant& instant, TimePoint now) {
  skipped_ += std::max(motion::Clock::duration::zero(), now - last_cycle_);
  record_.set_point.reference = instant.reference;
  record_.set_point.clock = instant.clock;
}

/// The measured positions; of a joint whose feedback is too old, the position last commanded.
JointArray ControlCycle::start_positions(TimePoint now) {
  JointArray q = reader_.measured().q;
  stale_.reset();
  for (std::size_t i = 0; commanded_ && i < kJointCount; ++i) {
    if (parts_.feedback.motor(i).answered && parts_.feedback.age_s(i, now) > kStaleS) {
      stale_.set(i);
      q[i] = (*commanded_)[i];
    }
  }
  parts_.state.publish_start(q, stale_);
  return q;
}

void ControlCycle::report_stale_start(TimePoint now) {
  for (std::size_t i = 0; i < kJointCount; ++i) {
    if (stale_[i]) {
      error_line() << "[control_loop] joint " << i + 1 << " has not answered for "
                   << parts_.feedback.age_s(i, now)
                   << " s: the command starts from its last commanded position";
    }
  }
}

void ControlCycle::stop_for_emergency(TimePoint now) {
  error_line() << "[control_loop] emergency_stop_flag=1, calling disable_all()";
  parts_.hardware.disable_all();
  parts_.hardware.recv_all(description::kQuietAfterDisableUs);
  parts_.slot.abandon(MotionOutcome::kFault);
  parts_.flags.exit_flag = true;
  error_line() << "[control_loop] disable_all done, exit_flag set, control loop exiting";
  publish_state(now);
}

// ---- Reports --------------------------------------------------------------

void ControlCycle::report_clipping(TimePoint now) {
  tau_clipped_count += static_cast<std::uint64_t>(record_.clipped);
  if (now < next_clip_report) {
    return;
  }
  if (tau_clipped_count != 0) {
    error_line() << "[control_loop] tau clipped count in last 1s: " << tau_clipped_count;
  }
  tau_clipped_count = 0;
  next_clip_report = now + description::kClipReportPeriod;
}

void ControlCycle::report_bus(TimePoint now) {
  if (const auto frames = foreign_report_.due(parts_.feedback.foreign_commands(), now)) {
    error_line() << "[control_loop] another program commands motor "
                 << parts_.feedback.foreign_motor() << " on this interface (frames: " << frames
                 << ")";
  }
  if (const auto frames = refused_report_.due(parts_.hardware.get_socket().refused_frames(), now)) {
    error_line() << "[control_loop] the interface has refused frames (" << frames
                 << "): its transmit queue is full, or it is down";
  }
}

void ControlCycle::publish_state(TimePoint now) {
  ArmState state;
  state.time_s = std::chrono::duration<double>(now.time_since_epoch()).count();
  report_motors(state, parts_.feedback, now);
  report_motion(state, reader_.measured(), record_, gripper_);
  const bool recovering = parts_.flags.recovery == StopFlags::Recovery::kRunning;
  report_condition(state,
                   {started_, recovering, parts_.flags.emergency_stop_flag,
                    parts_.flags.overloaded_joint, fault_},
                   record_.set_point);
  state.counters.late_cycles = late_cycles_;
  parts_.state.publish_arm_state(state, last_number_);
}

}  // namespace kelvara::controller
