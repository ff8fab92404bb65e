#include "controller/arm_controller_impl.hpp"

#include <algorithm>

#include "controller/bring_up.hpp"
#include "controller/control_cycle.hpp"
#include "controller/control_thread.hpp"
#include "controller/monitor_thread.hpp"
#include "controller/pose_solvers.hpp"

#include "motion/septic_trajectory.hpp"

using kelvara::JointArray;
using kelvara::kJointCount;
namespace controller = kelvara::controller;

ArmController::Impl::Impl(const std::string& can_interface, bool bus_flag, ArmController* /*owner*/,
                          bool with_gripper, kelvara::damiao_motor::ControlMode mode)
    : hardware(can_interface, bus_flag),
      setup(controller::load_setup({.with_gripper = with_gripper, .mode = mode}, kinematics)),
      poses(std::make_unique<controller::PoseSolvers>(kinematics)),
      cycle(std::make_unique<controller::ControlCycle>(
          controller::ControlCycle::Parts{hardware, kinematics, setup, slot, state, flags})),
      control_(std::make_unique<controller::ControlThread>(*cycle, flags)),
      monitor_(std::make_unique<controller::MonitorThread>(state, flags)) {
  controller::BringUp bring_up(hardware, setup);
  bring_up.initial_kelvara();
  bring_up.check_start_pose();
}

ArmController::Impl::~Impl() = default;

void ArmController::Impl::start_two_thread() {
  control_->start();
  monitor_->start();
}

void ArmController::Impl::request_stop_and_join() {
  flags.exit_flag = true;
  control_->join();
  monitor_->join();
}

JointArray ArmController::Impl::clamp_to_limits(const std::vector<double>& q) const {
  JointArray clamped{};
  for (std::size_t i = 0; i < kJointCount; ++i) {
    clamped[i] = setup.limits.joints.clamp_to_urdf_joint_limit(i, q[i]);
  }
  return clamped;
}

void ArmController::Impl::publish_joint_raw_command(const std::vector<double>& q_end,
                                                    const std::vector<double>& v_end) {
  kelvara::motion::JointTarget target{.target_q = clamp_to_limits(q_end)};
  std::copy_n(v_end.begin(), kJointCount, target.target_dq.begin());
  slot.publish(target);
}

void ArmController::Impl::publish_joint_trajectory_command(const std::vector<double>& q_end,
                                                           double tf) {
  slot.publish(
      kelvara::motion::TimedMove{.target_q = clamp_to_limits(q_end), .traj_duration_s = tf});
}

void ArmController::Impl::publish_gravity_comp_command() { slot.publish(kelvara::motion::Float{}); }

void ArmController::Impl::publish_kdl_gravity_comp_command() {
  slot.publish(kelvara::motion::FloatKdl{});
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

SeptupleTrajectory ArmController::Impl::generate_septuple_trajectory(
    const std::vector<double>& q_start, const std::vector<double>& q_end, double tf, double freq) {
  return kelvara::motion::generate_septuple_trajectory(q_start, q_end, tf, freq);
}

double ArmController::Impl::clamp(double x, double lo, double hi) {
  return kelvara::description::clamp(x, lo, hi);
}
