#include "kelvara/arm_controller.hpp"

#include <stdexcept>

#include "controller/arm_controller_impl.hpp"
#include "controller/finite.hpp"

using kelvara::controller::JointArray;
using kelvara::controller::kHomePose;
using kelvara::controller::kHomingTime;
using kelvara::controller::kJointCount;

namespace {

void require_finite(const std::vector<double>& values, const char* name) {
  if (!kelvara::controller::all_finite(values)) {
    throw std::invalid_argument(std::string(name) + " must be finite");
  }
}

Eigen::VectorXd to_eigen(const JointArray& values) {
  return Eigen::Map<const Eigen::VectorXd>(values.data(), kJointCount);
}

}  // namespace

ArmController::ArmController(bool with_gripper, const std::string& can_interface, bool bus_flag,
                             kelvara::damiao_motor::ControlMode mode)
    : impl_(std::make_unique<Impl>(can_interface, bus_flag, this, with_gripper, mode)) {
  try {
    if (with_gripper) {
      closeGripper();
    }
    impl_->start_two_thread();
    set_joint({kHomePose.begin(), kHomePose.end()}, kHomingTime);
  } catch (...) {
    cleanup();
    throw;
  }
}

ArmController::Impl& ArmController::impl() const {
  if (!impl_) {
    throw std::runtime_error("ArmController: called after cleanup()");
  }
  return *impl_;
}

void ArmController::set_joint_raw(const std::vector<double>& q_end,
                                  const std::vector<double>& v_end) {
  if (q_end.size() != kJointCount) {
    throw std::invalid_argument("q_end length does not match num_joints");
  }
  if (v_end.size() != kJointCount) {
    throw std::invalid_argument("v_end length does not match num_joints");
  }
  require_finite(q_end, "q_end");
  require_finite(v_end, "v_end");
  impl().publish_joint_raw_command(q_end, v_end);
}

void ArmController::set_joint(const std::vector<double>& q_end, double tf) {
  if (q_end.size() != kJointCount) {
    throw std::invalid_argument("q_end size mismatch");
  }
  if (0.0 >= tf) {
    throw std::invalid_argument("tf must be positive");
  }
  require_finite(q_end, "q_end");
  impl().publish_joint_trajectory_command(q_end, tf);
}

Eigen::VectorXd ArmController::get_joint() {
  JointArray q{};
  impl().try_get_latest_joint_state(q);
  return to_eigen(q);
}

Eigen::VectorXd ArmController::get_joint_velocities() {
  JointArray dq{};
  impl().try_get_latest_joint_velocity_state(dq);
  return to_eigen(dq);
}

Eigen::VectorXd ArmController::get_joint_torques() {
  JointArray tau{};
  impl().try_get_latest_torque_state(tau);
  return to_eigen(tau);
}
