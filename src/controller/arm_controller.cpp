#include "kelvara/arm_controller.hpp"

#include <stdexcept>
#include <utility>
#include <vector>

#include "controller/arm_controller_impl.hpp"

#include "description/arm_facts.hpp"
#include "description/timing.hpp"

namespace {

/// In a child process the threads do not exist and the motors are the parent's: nothing of `impl`
/// may be destroyed. It stays reachable, so that leak checkers do not report it.
void keep_for_ever(std::unique_ptr<ArmController::Impl> impl) {
  static auto& kept = *new std::vector<std::unique_ptr<ArmController::Impl>>;
  kept.push_back(std::move(impl));
}

void go_home(ArmController::Impl& impl) {
  const kelvara::JointArray& home = kelvara::description::kHomePose;
  impl.publish_joint_trajectory_command({home.begin(), home.end()},
                                        kelvara::description::kHomingTimeS);
}

/// The end of a constructor: when it fails, the motors are switched off.
template <typename Start>
void or_clean_up(ArmController& arm, Start start) {
  try {
    start();
  } catch (...) {
    arm.cleanup();
    throw;
  }
}

}  // namespace

ArmController::ArmController(bool with_gripper, const std::string& can_interface, bool bus_flag,
                             kelvara::damiao_motor::ControlMode mode)
    : impl_(std::make_unique<Impl>(can_interface, bus_flag, this, with_gripper, mode)) {
  or_clean_up(*this, [this] {
    impl_->publish_gripper_distance_command(0.0);
    impl_->start_two_thread();
    go_home(*impl_);
  });
}

ArmController::ArmController(const kelvara::ArmOptions& options)
    : impl_(std::make_unique<Impl>(options)) {
  or_clean_up(*this, [this, &options] {
    impl_->publish_hold();
    impl_->start_two_thread();
    if (options.go_home) {
      go_home(*impl_);
    }
  });
}

ArmController::~ArmController() {
  cleanup();
  if (impl_) {
    keep_for_ever(std::move(impl_));
  }
}

void ArmController::cleanup() {
  if (cleaned_up.exchange(true) || !impl_ ||
      !impl_->hardware.get_socket().belongs_to_this_process()) {
    return;
  }
  // Threads first, so that nothing is sent after the disable.
  impl_->close();
  try {
    impl_->hardware.disable_all();
    impl_->hardware.recv_all(kelvara::description::kQuietAfterDisableUs);
  } catch (...) {  // NOLINT(bugprone-empty-catch)
    // A bus that fails now must not keep the rest from being released.
  }
  closed_state_ = impl_->closed_state();
  impl_.reset();
}

kelvara::ArmState ArmController::state() const {
  return impl_ ? impl().arm_state() : closed_state_;
}

bool ArmController::recover() { return impl().recover(); }

kelvara::DescriptionFiles ArmController::description_files() const {
  return impl().kinematics.description_files();
}

ArmController::Impl& ArmController::impl() const {
  if (!impl_) {
    throw std::runtime_error("ArmController: called after cleanup()");
  }
  if (!impl_->hardware.get_socket().belongs_to_this_process()) {
    throw std::runtime_error("ArmController: called in a child process");
  }
  return *impl_;
}

void ArmController::identify_gravity_compensation() { impl().publish_kdl_gravity_comp_command(); }

void ArmController::identify_gravity_compensation_kdl() {
  impl().publish_kdl_gravity_comp_command();
}

SeptupleTrajectory ArmController::generate_septuple_trajectory(const std::vector<double>& q_start,
                                                               const std::vector<double>& q_end,
                                                               double tf, double freq) {
  return Impl::generate_septuple_trajectory(q_start, q_end, tf, freq);
}
