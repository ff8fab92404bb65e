#include "controller/state_buffer.hpp"

namespace kelvara::controller {
namespace {

template <typename Value>
bool copy_if(bool valid, const Value& value, Value& out) {
  if (valid) {
    out = value;
  }
  return valid;
}

}  // namespace

void StateBuffer::publish_state(const JointArray& q, const JointArray& dq,
                                const std::optional<GripperState>& gripper) {
  const MutexLock lock(state_mutex);
  latest_q = q;
  latest_dq = dq;
  latest_state_valid = true;
  if (gripper) {
    latest_gripper_position = gripper->position;
    latest_gripper_distance = gripper->distance;
    latest_gripper_valid = true;
  }
}

void StateBuffer::publish_torque(const JointArray& tau) {
  const MutexLock lock(torque_mutex);
  latest_tau = tau;
  latest_tau_valid = true;
}

void StateBuffer::publish_start(const JointArray& q, const std::bitset<kJointCount>& stale) {
  const MutexLock lock(state_mutex);
  start_q_ = q;
  start_valid_ = true;
  start_stale_ = stale;
}

std::bitset<kJointCount> StateBuffer::start_positions(JointArray& out) const {
  const MutexLock lock(state_mutex);
  copy_if(start_valid_, start_q_, out);
  return start_stale_;
}

void StateBuffer::publish_arm_state(const ArmState& state, std::uint64_t number) {
  const MutexLock lock(arm_state_mutex);
  arm_state_ = state;
  executed_number_ = number;
}

void StateBuffer::publish_standing(const StandingCommand& standing) {
  const MutexLock lock(arm_state_mutex);
  standing_ = standing;
}

StandingCommand StateBuffer::standing() const {
  const MutexLock lock(arm_state_mutex);
  return standing_;
}

ArmState StateBuffer::arm_state(std::uint64_t* number) const {
  const MutexLock lock(arm_state_mutex);
  if (number != nullptr) {
    *number = executed_number_;
  }
  return arm_state_;
}

bool StateBuffer::try_get_latest_joint_state(JointArray& out) const {
  const MutexLock lock(state_mutex);
  return copy_if(latest_state_valid, latest_q, out);
}

bool StateBuffer::try_get_latest_joint_velocity_state(JointArray& out) const {
  const MutexLock lock(state_mutex);
  return copy_if(latest_state_valid, latest_dq, out);
}

bool StateBuffer::try_get_latest_torque_state(JointArray& out) const {
  const MutexLock lock(torque_mutex);
  return copy_if(latest_tau_valid, latest_tau, out);
}

bool StateBuffer::try_get_latest_gripper_state(double& out) const {
  const MutexLock lock(state_mutex);
  return copy_if(latest_gripper_valid, latest_gripper_position, out);
}

bool StateBuffer::try_get_latest_gripper_distance_state(double& out) const {
  const MutexLock lock(state_mutex);
  return copy_if(latest_gripper_valid, latest_gripper_distance, out);
}

}  // namespace kelvara::controller
