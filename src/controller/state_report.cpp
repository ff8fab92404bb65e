#include "controller/state_report.hpp"

#include <cstdio>

namespace kelvara::controller {
namespace {

ArmCondition condition_of(const Fault& fault) {
  return fault.reason == StopReason::kBusSilent ? ArmCondition::kBusSilent
                                                : ArmCondition::kMotorFault;
}

ArmCondition condition_of(const motion::SetPoint& set_point) {
  if (set_point.torque_only) {
    return ArmCondition::kFloating;
  }
  return set_point.moving ? ArmCondition::kMoving : ArmCondition::kHolding;
}

}  // namespace

FaultText::FaultText(StopReason reason, int motor) {
  const char* subject = motor == 0 ? "" : "joint";
  const char* predicate = to_string(reason);
  if (reason == StopReason::kMotorError) {
    subject = "motor";
    predicate = "reports an error";
  } else if (reason == StopReason::kMotorDisabled) {
    subject = "motor";
    predicate = "is disabled";
  } else if (reason == StopReason::kMotorSilent) {
    subject = "motor";
    predicate = "does not answer";
  }
  if (motor == 0) {
    std::snprintf(text_.data(), text_.size(), "%s", predicate);
  } else {
    std::snprintf(text_.data(), text_.size(), "%s %d %s", subject, motor, predicate);
  }
}

void report_motors(ArmState& state, const MotorFeedback& feedback, motion::TimePoint now) {
  for (std::size_t i = 0; i < feedback.motor_count(); ++i) {
    const MotorFeedback::Sample& sample = feedback.motor(i);
    if (sample.answered) {
      state.motors[i] = {true,
                         feedback.age_s(i, now),
                         sample.state.error_code,
                         damiao_motor::motor_error_name(sample.state.error_code),
                         sample.state.t_mos,
                         sample.state.t_rotor};
    }
  }
  state.counters.implausible_samples = feedback.implausible_samples();
  state.counters.foreign_commands = feedback.foreign_commands();
}

void report_motion(ArmState& state, const Measurement& measured, const CycleRecord& record,
                   const GripperCommand& gripper) {
  state.q = measured.q;
  state.dq = measured.dq;
  state.tau = measured.tau;
  state.q_command = record.set_point.torque_only ? measured.q : record.set_point.q;
  state.dq_command = record.set_point.dq;
  state.tau_command = record.torque;
  state.progress = record.set_point.progress;
  state.gripper.fitted = measured.gripper.has_value();
  if (measured.gripper) {
    state.gripper.valid = state.motors[kGripperMotor].answered;
    state.gripper.position = measured.gripper->position;
    state.gripper.distance_m = measured.gripper->distance;
    state.gripper.has_command = gripper.gripper_command_active;
    state.gripper.command_m = gripper.gripper_target_distance;
  }
}

void report_condition(ArmState& state, const ConditionFacts& facts,
                      const motion::SetPoint& set_point) {
  state.reason = StopReason::kNone;
  state.reason_motor = 0;
  if (facts.stopped_by_monitor) {
    state.condition = ArmCondition::kStoppedByMonitor;
    state.reason = StopReason::kTorqueLimit;
    state.reason_motor = facts.overloaded_joint;
  } else if (facts.recovering || !facts.started) {
    state.condition = ArmCondition::kStarting;
  } else if (facts.fault) {
    state.condition = condition_of(*facts.fault);
    state.reason = facts.fault->reason;
    state.reason_motor = facts.fault->motor;
  } else {
    state.condition = condition_of(set_point);
  }
}

}  // namespace kelvara::controller
