// How a control cycle reacts to a fault, and recovers from it.

#include "controller/control_cycle.hpp"

#include "description/timing.hpp"
#include "diagnostics/line.hpp"

namespace kelvara::controller {
namespace {

using diagnostics::error_line;
using motion::TimePoint;

const char* consequence_of(FaultReaction reaction) {
  switch (reaction) {
    case FaultReaction::kHold:
      return "; the arm holds until recover()";
    case FaultReaction::kDisable:
      return "; every motor is disabled until recover()";
    default:
      return "";
  }
}

}  // namespace

// ---- Faults ---------------------------------------------------------------

/// @return false after a fault that has disabled the motors.
bool ControlCycle::watch_faults(TimePoint now) {
  if (parts_.flags.faulted) {
    return true;
  }
  const bool gripper_commanded = gripper_.gripper_command_active || record_.set_point.torque_only;
  const std::optional<Fault> fault = watch_.step(parts_.feedback, now, gripper_commanded);
  if (fault == fault_) {
    return true;
  }
  if (!fault) {
    error_line() << "[control_loop] every motor answers as an enabled one again";
  }
  fault_ = fault;
  return !fault_ || react(now);
}

bool ControlCycle::react(TimePoint now) {
  const FaultReaction reaction = parts_.setup.on_fault;
  parts_.flags.fault_reason = fault_->reason;
  parts_.flags.faulty_motor = fault_->motor;
  parts_.flags.faulted = reaction != FaultReaction::kReport;
  if (reaction == FaultReaction::kHold) {
    hold_others();
  } else if (reaction == FaultReaction::kDisable) {
    parts_.hardware.disable_all();
    parts_.hardware.recv_all(description::kQuietAfterDisableUs);
    parts_.slot.abandon(MotionOutcome::kFault);
    parts_.flags.exit_flag = true;
    publish_state(now);
  }
  error_line() << "[control_loop] " << FaultText(fault_->reason, fault_->motor).c_str()
               << consequence_of(reaction);
  return reaction != FaultReaction::kDisable;
}

/// Brakes every joint from where it is commanded to. A floating arm that no longer reports where it
/// is keeps floating: a hold would pull it back to where it was.
void ControlCycle::hold_others() {
  const bool silent =
      fault_->reason == StopReason::kBusSilent || fault_->reason == StopReason::kMotorSilent;
  if (record_.set_point.torque_only && silent) {
    hold_number_ = parts_.slot.override_command(motion::FloatKdl{});
    return;
  }
  hold_number_ = parts_.slot.override_command(brake_from_here());
}

motion::Brake ControlCycle::brake_from_here() const {
  if (!commanded_) {
    return {.start_q = reader_.measured().q};
  }
  return {.start_q = *commanded_, .start_dq = record_.set_point.dq};
}

void ControlCycle::begin_recovery(TimePoint now) {
  recovery_.begin(now);
  watch_.begin(now);
  recovery_hold_ = brake_from_here();
  motion::Instant instant;
  instant.now = now - skipped_;
  recovery_hold_.begin(instant);
  parts_.flags.recovery = StopFlags::Recovery::kRunning;
}

/// Holds what is enabled and lets the targets of the rest follow the arm, so that a motor that is
/// enabled again has nowhere to go. An arm that floated keeps floating until it reports where it
/// is.
void ControlCycle::step_recovery(bool has_feedback, TimePoint now) {
  const Recovery::Progress progress =
      has_feedback ? recovery_.step(now) : Recovery::Progress::kRunning;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    if (!commanded_ || !recovery_.kept_enabled(i)) {
      recovery_hold_.start_q[i] = reader_.measured().q[i];
      recovery_hold_.start_dq[i] = 0.0;
    }
  }
  const bool floats = !commanded_ && !recovery_.all_fresh(now);
  const motion::Command command =
      floats ? motion::Command(motion::FloatKdl{}) : motion::Command(recovery_hold_);
  motion::Instant instant;
  instant.now = now - skipped_;
  instant.measured = reader_.measured().q;
  record_ = compute_cycle(command, instant, parts_.setup, parts_.kinematics);
  sender_.send(record_);
  note_standing();
  hold_gripper_where_it_is();
  sender_.send_gripper(gripper_, now);
  last_cycle_ = now;
  started_ = true;
  if (!floats) {
    commanded_ = record_.set_point.q;
  }
  if (progress != Recovery::Progress::kRunning) {
    end_recovery(progress, command);
  }
}

/// A gripper that was off has moved: its old target would make it jump.
void ControlCycle::hold_gripper_where_it_is() {
  const std::optional<GripperState>& measured = reader_.measured().gripper;
  if (measured && !recovery_.kept_enabled(kGripperMotor)) {
    parts_.slot.publish_gripper_distance_command(measured->distance);
    gripper_.gripper_target_distance =
        description::clamp(measured->distance, 0.0, description::kMaxJawDistance);
  }
}

void ControlCycle::end_recovery(Recovery::Progress progress, const motion::Command& command) {
  hold_number_ = parts_.slot.override_command(command);
  const bool done = progress == Recovery::Progress::kDone;
  if (done) {
    fault_.reset();
    parts_.flags.faulted = false;
    error_line() << "[control_loop] recovered: the arm holds where it is";
  } else {
    error_line() << "[control_loop] not recovered: motor " << recovery_.missing_motor()
                 << " does not answer as an enabled one";
  }
  parts_.flags.recovery = done ? StopFlags::Recovery::kDone : StopFlags::Recovery::kFailed;
}

}  // namespace kelvara::controller
