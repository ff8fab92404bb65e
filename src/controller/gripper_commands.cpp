#include <iostream>
#include <sstream>

#include "controller/arm_controller_impl.hpp"

namespace {

using kelvara::controller::clamp;

constexpr double kMinSpeed = 0.1;
constexpr double kMaxSpeed = 20.0;
constexpr double kMinForce = 0.1;
constexpr double kMaxForce = 1.0;

void print_no_gripper() { std::cout << "该模式未包含夹爪" << std::endl; }

/// A line about a value outside its range; the message's millimetres stand for metres.
void warn_out_of_range(const char* what, double value) {
  std::ostringstream line;
  line << "[Warning] Gripper " << what << ", but got: " << value << ". Value will be clamped.\n";
  std::cerr << line.str();
}

/// The fraction inside [0, 1]; what is no number counts as fully open.
double clamp_fraction(double p) { return 1.0 > p ? (p > 0.0 ? p : 0.0) : 1.0; }

}  // namespace

// ---- Commands -------------------------------------------------------------

void ArmController::openGripper() {
  if (!impl().has_gripper) {
    print_no_gripper();
    return;
  }
  impl().publish_gripper_distance_command(Impl::gripper_max_distance);
}

void ArmController::closeGripper() {
  if (!impl().has_gripper) {
    print_no_gripper();
    return;
  }
  impl().publish_gripper_distance_command(0.0);
}

void ArmController::setGripperPosition(double p) {
  if (!impl().has_gripper) {
    print_no_gripper();
    return;
  }
  if (p < 0.0 || p > 1.0) {
    warn_out_of_range("position must be in [0, 1]", p);
  }
  impl().publish_gripper_distance_command(clamp_fraction(p) * Impl::gripper_max_distance);
}

void ArmController::setGripperPosition_raw(double p) { setGripperPosition(p); }

void ArmController::setGripperDistance(double d, double speed, double force) {
  if (!impl().has_gripper) {
    print_no_gripper();
    return;
  }
  if (d < 0.0 || d > Impl::gripper_max_distance) {
    warn_out_of_range("distance must be in [0mm, 85 mm]", d);
  }
  impl().publish_gripper_distance_command(d, speed, force);
}

void ArmController::setGripperDistance(double d) {
  setGripperDistance(d, kelvara::controller::kDefaultGripperSpeed,
                     kelvara::controller::kDefaultGripperForce);
}

void ArmController::Impl::publish_gripper_distance_command(double d) {
  if (!has_gripper) {
    return;
  }
  const std::lock_guard<std::mutex> lock(command_mutex);
  command.gripper_target_distance = clamp(d, 0.0, gripper_max_distance);
  command.gripper_command_valid = true;
  command.gripper_command_active = true;
}

void ArmController::Impl::publish_gripper_distance_command(double d, double speed, double force) {
  if (!has_gripper) {
    return;
  }
  const std::lock_guard<std::mutex> lock(command_mutex);
  command.gripper_target_distance = clamp(d, 0.0, gripper_max_distance);
  command.gripper_speed = clamp(speed, kMinSpeed, kMaxSpeed);
  command.gripper_force = clamp(force, kMinForce, kMaxForce);
  command.gripper_command_valid = true;
  command.gripper_command_active = true;
}

// ---- Queries --------------------------------------------------------------

double ArmController::get_gripper_distance() {
  if (!impl().has_gripper) {
    print_no_gripper();
    return -1.0;
  }
  double distance = 0.0;
  if (!impl().try_get_latest_gripper_distance_state(distance)) {
    return 0.0;
  }
  return clamp(distance, 0.0, Impl::gripper_max_distance);
}

double ArmController::get_gripper_position() {
  if (!impl().has_gripper) {
    print_no_gripper();
    return -1.0;
  }
  return clamp_fraction(get_gripper_distance() / Impl::gripper_max_distance);
}
