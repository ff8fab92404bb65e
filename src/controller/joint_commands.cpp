#include <algorithm>
#include <stdexcept>

#include "controller/arm_controller_impl.hpp"

#include "description/finite.hpp"

using kelvara::JointArray;
using kelvara::kJointCount;

namespace {

void require_joint_count(const std::vector<double>& values, const char* message) {
  if (values.size() != kJointCount) {
    throw std::invalid_argument(message);
  }
}

void require_finite(const std::vector<double>& values, const char* message) {
  if (!kelvara::description::all_finite(values)) {
    throw std::invalid_argument(message);
  }
}

}  // namespace

// ---- Commands -------------------------------------------------------------

void ArmController::set_joint_raw(const std::vector<double>& q_end,
                                  const std::vector<double>& v_end) {
  require_joint_count(q_end, "q_end length does not match num_joints");
  require_joint_count(v_end, "v_end length does not match num_joints");
  require_finite(q_end, "q_end must be finite");
  require_finite(v_end, "v_end must be finite");
  impl().publish_joint_raw_command(q_end, v_end);
}

void ArmController::set_joint(const std::vector<double>& q_end, double tf) {
  require_joint_count(q_end, "q_end size mismatch");
  if (0.0 >= tf) {
    throw std::invalid_argument("tf must be positive");
  }
  require_finite(q_end, "q_end must be finite");
  impl().publish_joint_trajectory_command(q_end, tf);
}

// ---- Queries --------------------------------------------------------------

std::array<double, 6> ArmController::joint_positions() const {
  JointArray q{};
  impl().state.try_get_latest_joint_state(q);
  return q;
}

std::array<double, 6> ArmController::joint_velocities() const {
  JointArray dq{};
  impl().state.try_get_latest_joint_velocity_state(dq);
  return dq;
}

std::array<double, 6> ArmController::joint_torques() const {
  JointArray tau{};
  impl().state.try_get_latest_torque_state(tau);
  return tau;
}
