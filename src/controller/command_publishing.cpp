// How the application's commands reach the slot.

#include <algorithm>
#include <chrono>
#include <utility>

#include "controller/arm_controller_impl.hpp"
#include "hardware/jaw_geometry.hpp"

#include "diagnostics/line.hpp"

using kelvara::JointArray;
using kelvara::kJointCount;
namespace controller = kelvara::controller;

JointArray ArmController::Impl::clamp_to_limits(const std::vector<double>& q) const {
  JointArray clamped{};
  for (std::size_t i = 0; i < kJointCount; ++i) {
    clamped[i] = setup.limits.joints.clamp_to_urdf_joint_limit(i, q[i]);
  }
  return clamped;
}

void ArmController::Impl::publish(kelvara::motion::Command command) {
  require_no_fault();
  slot.publish(std::move(command));
}

void ArmController::Impl::publish_joint_raw_command(const std::vector<double>& q_end,
                                                    const std::vector<double>& v_end) {
  kelvara::motion::JointTarget target{.target_q = clamp_to_limits(q_end)};
  std::copy_n(v_end.begin(), kJointCount, target.target_dq.begin());
  publish(target);
}

void ArmController::Impl::publish_streamed_command(const std::vector<double>& q_end,
                                                   const std::vector<double>& v_end) {
  kelvara::motion::JointTarget target{.target_q = clamp_to_limits(q_end), .is_streamed = true};
  std::copy_n(v_end.begin(), kJointCount, target.target_dq.begin());
  publish(target);
}

void ArmController::Impl::publish_hold() {
  kelvara::motion::JointTarget target{.is_hold = true};
  for (std::size_t i = 0; i < kJointCount; ++i) {
    target.target_q[i] = setup.motor_signs.to_joint(i, feedback.motor(i).state.position);
  }
  publish(target);
  const auto& gripper = feedback.motor(controller::kGripperMotor);
  if (setup.has_gripper && gripper.answered) {
    slot.publish_gripper_distance_command(
        kelvara::can::socket::jaw_distance_from_angle(gripper.state.position));
  }
}

void ArmController::Impl::publish_joint_trajectory_command(const std::vector<double>& q_end,
                                                           double tf) {
  publish(kelvara::motion::TimedMove{.target_q = clamp_to_limits(q_end), .traj_duration_s = tf});
}

void ArmController::Impl::publish_follow(const JointArray& target, double time_s) {
  kelvara::motion::Follow stream;
  stream.velocity = setup.motion.velocity;
  stream.catch_up = setup.joint_trajectory.default_speed_percent;
  stream.limits = {setup.motion.acceleration, setup.motion.jerk};
  kelvara::motion::StampedTarget stamped;
  stamped.time_s = time_s;
  const auto now = kelvara::motion::Clock::now().time_since_epoch();
  stamped.received_s = std::chrono::duration<double>(now).count();
  stamped.q = clamp_to_limits({target.begin(), target.end()});
  if (slot.follow(stream, stamped)) {
    is_ignoring_stream = false;
  } else if (!is_ignoring_stream.exchange(true)) {
    kelvara::diagnostics::error_line() << "[ArmController] follow(): the stream was stopped; its "
                                          "targets are ignored until another "
                                          "motion is commanded or its time starts again";
  }
}

void ArmController::Impl::publish_gravity_comp_command() { publish(kelvara::motion::Float{}); }

void ArmController::Impl::publish_kdl_gravity_comp_command() {
  publish(kelvara::motion::FloatKdl{});
}

void ArmController::Impl::publish_gripper_distance_command(double d) {
  if (setup.has_gripper) {
    slot.publish_gripper_distance_command(d);
  }
}

void ArmController::Impl::publish_gripper_distance_command(double d, double speed, double force) {
  if (setup.has_gripper) {
    slot.publish_gripper_distance_command(d, speed, force);
  }
}
