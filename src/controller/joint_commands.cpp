#include <algorithm>

#include "controller/arm_controller_impl.hpp"

using kelvara::controller::kJointCount;
using kelvara::controller::kJointTarget;
using kelvara::controller::kSmoothMove;

namespace {

/// Copies a value that `valid` vouches for, under the mutex that guards both.
template <typename Value>
bool copy_if_valid(std::mutex& mutex, const bool& valid, const Value& value, Value& out) {
  const std::lock_guard<std::mutex> lock(mutex);
  if (valid) {
    out = value;
  }
  return valid;
}

}  // namespace

void ArmController::Impl::publish_joint_raw_command(const std::vector<double>& q_end,
                                                    const std::vector<double>& v_end) {
  const std::lock_guard<std::mutex> lock(command_mutex);
  command.begin_command(kJointTarget);
  for (std::size_t i = 0; i < kJointCount; ++i) {
    command.target_q[i] = limits.joints.clamp_joint(i, q_end[i]);
    command.target_dq[i] = v_end[i];
  }
}

void ArmController::Impl::publish_joint_trajectory_command(const std::vector<double>& q_end,
                                                           double tf) {
  const std::lock_guard<std::mutex> lock(command_mutex);
  command.traj_duration_s = tf;
  command.begin_command(kSmoothMove);
  for (std::size_t i = 0; i < kJointCount; ++i) {
    command.target_q[i] = limits.joints.clamp_joint(i, q_end[i]);
    command.target_dq[i] = 0.0;
  }
}

bool ArmController::Impl::try_get_latest_joint_state(JointArray& out) {
  return copy_if_valid(state_mutex, latest_state_valid, latest_q, out);
}

bool ArmController::Impl::try_get_latest_joint_velocity_state(JointArray& out) {
  return copy_if_valid(state_mutex, latest_state_valid, latest_dq, out);
}

bool ArmController::Impl::try_get_latest_torque_state(JointArray& out) {
  return copy_if_valid(torque_mutex, latest_tau_valid, latest_tau, out);
}

bool ArmController::Impl::try_get_latest_gripper_state(double& out) {
  return copy_if_valid(state_mutex, latest_gripper_valid, latest_gripper_position, out);
}

bool ArmController::Impl::try_get_latest_gripper_distance_state(double& out) {
  return copy_if_valid(state_mutex, latest_gripper_valid, latest_gripper_distance, out);
}

double ArmController::Impl::clamp(double x, double lo, double hi) {
  return kelvara::controller::clamp(x, lo, hi);
}

double ArmController::Impl::clamp_to_urdf_joint_limit(int joint, double q) const {
  return limits.joints.clamp_joint(static_cast<std::size_t>(joint), q);
}
