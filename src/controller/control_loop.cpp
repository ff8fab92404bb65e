#include <cmath>
#include <exception>
#include <iostream>
#include <sstream>

#include "controller/arm_controller_impl.hpp"
#include "controller/sleep_until.hpp"
#include "hardware/jaw_geometry.hpp"

using kelvara::controller::Clock;
using kelvara::controller::CommandSlot;
using kelvara::controller::kJointCount;
using kelvara::controller::SetPoint;
using kelvara::damiao_motor::Motor;

namespace {

constexpr std::chrono::microseconds kCyclePeriod{2500};
constexpr std::chrono::milliseconds kFeedbackPeriod{5};
constexpr std::chrono::milliseconds kGripperPeriod{5};
constexpr std::chrono::seconds kClipReportPeriod{1};
constexpr int kFeedbackQuietUs = 100;
constexpr int kQuietAfterDisableUs = 1000;
constexpr double kClipTolerance = 1e-9;  // N·m
constexpr kelvara::damiao_motor::MITParam kNoEffort{0.0, 0.0, 0.0, 0.0, 0.0};

static_assert(std::chrono::duration<double>(kCyclePeriod).count() ==
              kelvara::controller::kControlPeriodS);

/// Steps a schedule past `now`; slots that were missed are dropped.
void advance_past(kelvara::controller::TimePoint& next, std::chrono::milliseconds period,
                  kelvara::controller::TimePoint now) {
  while (next <= now) {
    next += period;
  }
}

}  // namespace

void ArmController::Impl::control_loop() {
  begin_loop(Clock::now());
  while (!exit_flag) {
    run_cycle(Clock::now());
    if (exit_flag) {
      break;
    }
    kelvara::controller::sleep_until(next_cycle);
    next_cycle += kCyclePeriod;
  }
  std::ostringstream line;
  line << "[control_loop] loop exited. exit_flag=" << exit_flag
       << " emergency_stop_flag=" << emergency_stop_flag << '\n';
  std::cerr << line.str();
}

void ArmController::Impl::begin_loop(TimePoint start) {
  next_cycle = start + kCyclePeriod;
  next_feedback = start;
  next_gripper_send = start;
  next_clip_report = start;
}

void ArmController::Impl::run_cycle(TimePoint now) {
  try {
    run_cycle_steps(now);
  } catch (const std::exception& error) {
    std::ostringstream line;
    line << "[control_loop] exception: " << error.what() << '\n';
    std::cerr << line.str();
  }
}

void ArmController::Impl::run_cycle_steps(TimePoint now) {
  const JointArray measured = update_feedback(now);
  if (emergency_stop_flag) {
    stop_for_emergency();
    return;
  }
  const CommandSlot snapshot = take_snapshot(measured, now);
  const SetPoint point = kelvara::controller::evaluate_setpoint(snapshot, measured, now, limits,
                                                                control_mode, mit_reference);
  if (point.completed) {
    complete_command(snapshot);
  }
  if (uses_pos_vel_mode()) {
    send_pos_vel(point);
  } else {
    send_mit(point);
  }
  send_gripper(snapshot, now);
  report_clipping(now);
}

// ---- Feedback -------------------------------------------------------------

ArmController::Impl::JointArray ArmController::Impl::update_feedback(TimePoint now) {
  JointArray q{};
  const bool published = try_get_latest_joint_state(q);
  if (published && now < next_feedback) {
    return q;
  }
  advance_past(next_feedback, kFeedbackPeriod, now);
  hardware.get_arm().refresh_all();
  hardware.recv_all(kFeedbackQuietUs);

  JointArray dq{};
  JointArray tau{};
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const Motor* motor = hardware.get_arm().find_motor(static_cast<int>(i));
    q[i] = motor == nullptr ? 0.0 : motor->position * motor_signs[i];
    dq[i] = motor == nullptr ? 0.0 : motor->velocity * motor_signs[i];
    tau[i] = motor == nullptr ? 0.0 : motor->torque * motor_signs[i];
  }
  publish_state(q, dq);
  const std::lock_guard<std::mutex> lock(torque_mutex);
  latest_tau = tau;
  latest_tau_valid = true;
  return q;
}

void ArmController::Impl::publish_state(const JointArray& q, const JointArray& dq) {
  const Motor* gripper = has_gripper ? hardware.get_gripper().find_motor(0) : nullptr;
  double gripper_position = 0.0;
  double gripper_distance = 0.0;
  if (gripper != nullptr) {
    gripper_position = hardware.get_gripper().position_at_angle(gripper->position);
    gripper_distance = kelvara::can::socket::jaw_distance_from_angle(gripper->position);
  }
  const std::lock_guard<std::mutex> lock(state_mutex);
  latest_q = q;
  latest_dq = dq;
  latest_state_valid = true;
  if (gripper != nullptr) {
    latest_gripper_position = gripper_position;
    latest_gripper_distance = gripper_distance;
    latest_gripper_valid = true;
  }
}

void ArmController::Impl::stop_for_emergency() {
  std::cerr << "[control_loop] emergency_stop_flag=1, calling disable_all()\n";
  hardware.disable_all();
  hardware.recv_all(kQuietAfterDisableUs);
  exit_flag = true;
  std::cerr << "[control_loop] disable_all done, exit_flag set, control loop exiting\n";
}

// ---- Command --------------------------------------------------------------

CommandSlot ArmController::Impl::take_snapshot(const JointArray& measured, TimePoint now) {
  const std::lock_guard<std::mutex> lock(command_mutex);
  if (command.command_type == kelvara::controller::kSmoothMove && !command.traj_started) {
    command.traj_started = true;
    command.traj_start_q = measured;
    command.traj_start_time = now;
  }
  if (command.command_type == kelvara::controller::kWaypointTrajectory &&
      !command.waypoints_started) {
    command.waypoints_started = true;
    command.waypoints_start_time = now;
  }
  return command;
}

void ArmController::Impl::complete_command(const CommandSlot& finished) {
  const std::lock_guard<std::mutex> lock(command_mutex);
  if (command.command_number != finished.command_number) {
    return;  // a new command came since the snapshot
  }
  command.command_type = kelvara::controller::kJointTarget;
  command.traj_started = false;
  command.waypoints_started = false;
  command.waypoints.reset();
  command.target_dq = {};
}

// ---- Output ---------------------------------------------------------------

void ArmController::Impl::send_mit(const SetPoint& point) {
  JointArray torque{};
  kinematics.inverse_dynamics(point.model_q.data(), point.model_dq.data(), point.model_ddq.data(),
                              torque.data());
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double limit = mit_config.gravity_tau_limits[i];
    const double clipped = kelvara::controller::clamp(torque[i], -limit, limit);
    if (std::abs(clipped - torque[i]) > kClipTolerance) {
      ++tau_clipped_count;
    }
    const double sign = motor_signs[i];
    if (point.torque_only) {
      hardware.get_arm().mit_control_one(static_cast<int>(i), {0.0, 0.0, 0.0, 0.0, clipped * sign});
    } else {
      hardware.get_arm().mit_control_one(static_cast<int>(i),
                                         {mit_config.kp[i], mit_config.kd[i], point.q[i] * sign,
                                          point.dq[i] * sign, clipped * sign});
    }
  }
  if (point.torque_only) {
    relax_gripper();
  }
}

void ArmController::Impl::send_pos_vel(const SetPoint& point) {
  if (point.torque_only && !pos_vel_gravity_warned) {
    pos_vel_gravity_warned = true;
    std::cerr << "[control_loop] Gravity compensation torque feedforward is "
                 "disabled in POS_VEL_MODE; falling back to position/velocity hold.\n";
  }
  for (std::size_t i = 0; i < kJointCount; ++i) {
    hardware.get_arm().pos_vel_control_one(static_cast<int>(i),
                                           {static_cast<float>(point.q[i] * motor_signs[i]),
                                            static_cast<float>(std::abs(point.velocity_limit[i]))});
  }
  if (point.torque_only) {
    relax_gripper();
  }
}

void ArmController::Impl::relax_gripper() {
  if (has_gripper) {
    hardware.get_gripper().mit_control_one(0, kNoEffort);
  }
}

void ArmController::Impl::send_gripper(const CommandSlot& snapshot, TimePoint now) {
  if (!has_gripper || !snapshot.gripper_command_valid || !snapshot.gripper_command_active ||
      now < next_gripper_send) {
    return;
  }
  advance_past(next_gripper_send, kGripperPeriod, now);
  hardware.get_gripper().set_distance(snapshot.gripper_target_distance, snapshot.gripper_speed,
                                      snapshot.gripper_force);
}

void ArmController::Impl::report_clipping(TimePoint now) {
  if (now < next_clip_report) {
    return;
  }
  if (tau_clipped_count != 0) {
    std::ostringstream line;
    line << "[control_loop] tau clipped count in last 1s: " << tau_clipped_count << '\n';
    std::cerr << line.str();
  }
  tau_clipped_count = 0;
  next_clip_report = now + kClipReportPeriod;
}
