#include "controller/control_cycle.hpp"

#include <exception>

#include "controller/diagnostics.hpp"
#include "hardware/jaw_geometry.hpp"

#include "description/timing.hpp"

namespace kelvara::controller {
namespace {

using damiao_motor::Motor;
using motion::TimePoint;

constexpr damiao_motor::MITParam kNoEffort{0.0, 0.0, 0.0, 0.0, 0.0};

/// Steps a schedule past `now`; slots that were missed are dropped.
void advance_past(TimePoint& next, std::chrono::milliseconds period, TimePoint now) {
  while (next <= now) {
    next += period;
  }
}

void send_joint(damiao_motor::DMDeviceCollection& arm, int joint,
                const damiao_motor::MITParam& command) {
  arm.mit_control_one(joint, command);
}

void send_joint(damiao_motor::DMDeviceCollection& arm, int joint,
                const damiao_motor::POS_VELParam& command) {
  arm.pos_vel_control_one(joint, command);
}

}  // namespace

void ControlCycle::begin(TimePoint start) {
  next_feedback = start;
  next_gripper_send = start;
  next_clip_report = start;
}

void ControlCycle::run_cycle(TimePoint now) {
  try {
    run_steps(now);
  } catch (const std::exception& error) {
    error_line() << "[control_loop] exception: " << error.what();
  }
}

void ControlCycle::run_steps(TimePoint now) {
  const JointArray measured = update_feedback(now);
  if (parts_.flags.emergency_stop_flag) {
    stop_for_emergency();
    return;
  }
  const CommandSnapshot snapshot = parts_.slot.snapshot(measured, now);
  record_ = compute_cycle(snapshot.command, {now, measured, record_.set_point.reference},
                          parts_.setup, parts_.kinematics);
  if (record_.set_point.end) {
    parts_.slot.complete(snapshot.number, {*record_.set_point.end, {}});
  }
  send(record_);
  send_gripper(snapshot.gripper, now);
  report(record_);
}

// ---- Feedback -------------------------------------------------------------

JointArray ControlCycle::update_feedback(TimePoint now) {
  JointArray q{};
  if (parts_.state.try_get_latest_joint_state(q) && now < next_feedback) {
    return q;
  }
  advance_past(next_feedback, description::kFeedbackPeriod, now);
  parts_.hardware.get_arm().refresh_all();
  parts_.hardware.recv_all(description::kQuietInCycleUs);
  return publish_feedback();
}

/// Publishes what the motors last answered; returns the joint angles.
JointArray ControlCycle::publish_feedback() {
  JointArray q{};
  JointArray dq{};
  JointArray tau{};
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const Motor* motor = parts_.hardware.get_arm().find_motor(static_cast<int>(i));
    if (motor != nullptr) {
      q[i] = parts_.setup.motor_signs.to_joint(i, motor->position);
      dq[i] = parts_.setup.motor_signs.to_joint(i, motor->velocity);
      tau[i] = parts_.setup.motor_signs.to_joint(i, motor->torque);
    }
  }
  parts_.state.publish_state(q, dq, read_gripper());
  parts_.state.publish_torque(tau);
  return q;
}

std::optional<GripperState> ControlCycle::read_gripper() {
  auto& gripper = parts_.hardware.get_gripper();
  const Motor* motor = parts_.setup.has_gripper ? gripper.find_motor(0) : nullptr;
  if (motor == nullptr) {
    return std::nullopt;
  }
  return GripperState{gripper.opening_at_angle(motor->position),
                      can::socket::jaw_distance_from_angle(motor->position)};
}

void ControlCycle::stop_for_emergency() {
  error_line() << "[control_loop] emergency_stop_flag=1, calling disable_all()";
  parts_.hardware.disable_all();
  parts_.hardware.recv_all(description::kQuietAfterDisableUs);
  parts_.flags.exit_flag = true;
  error_line() << "[control_loop] disable_all done, exit_flag set, control loop exiting";
}

// ---- Output ---------------------------------------------------------------

void ControlCycle::send(const CycleRecord& record) {
  auto& arm = parts_.hardware.get_arm();
  const bool torque_only = record.set_point.torque_only;
  if (torque_only && parts_.setup.uses_pos_vel_mode() && !pos_vel_gravity_warned) {
    pos_vel_gravity_warned = true;
    error_line() << "[control_loop] Gravity compensation torque feedforward is "
                    "disabled in POS_VEL_MODE; falling back to position/velocity hold.";
  }
  std::visit(
      [&arm](const auto& commands) {
        for (std::size_t i = 0; i < kJointCount; ++i) {
          send_joint(arm, static_cast<int>(i), commands[i]);
        }
      },
      record.sent);
  if (torque_only) {
    relax_gripper();
  }
}

void ControlCycle::relax_gripper() {
  if (parts_.setup.has_gripper) {
    parts_.hardware.get_gripper().mit_control_one(0, kNoEffort);
  }
}

void ControlCycle::send_gripper(const GripperCommand& command, TimePoint now) {
  if (!parts_.setup.has_gripper || !command.gripper_command_valid ||
      !command.gripper_command_active || now < next_gripper_send) {
    return;
  }
  advance_past(next_gripper_send, description::kGripperPeriod, now);
  parts_.hardware.get_gripper().set_distance(command.gripper_target_distance, command.gripper_speed,
                                             command.gripper_force);
}

void ControlCycle::report(const CycleRecord& record) {
  tau_clipped_count += static_cast<std::uint64_t>(record.clipped);
  if (record.time < next_clip_report) {
    return;
  }
  if (tau_clipped_count != 0) {
    error_line() << "[control_loop] tau clipped count in last 1s: " << tau_clipped_count;
  }
  tau_clipped_count = 0;
  next_clip_report = record.time + description::kClipReportPeriod;
}

}  // namespace kelvara::controller
