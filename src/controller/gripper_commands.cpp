#include "controller/arm_controller_impl.hpp"

#include "diagnostics/line.hpp"

namespace {

using kelvara::description::kMaxJawDistance;

/// Whether there is a gripper; prints a line when there is none.
bool require_gripper(const kelvara::controller::ControllerSetup& setup) {
  if (!setup.has_gripper) {
    kelvara::diagnostics::output_line() << "该模式未包含夹爪";
  }
  return setup.has_gripper;
}

/// Prints a range warning. (The text's unit is mm, the value is in metres: fixed wording.)
void warn_out_of_range(const char* what, double value) {
  kelvara::diagnostics::error_line()
      << "[Warning] Gripper " << what << ", but got: " << value << ". Value will be clamped.";
}

/// The fraction inside [0, 1]; NaN becomes 1, fully open.
double clamp_fraction(double p) { return 1.0 > p ? (p > 0.0 ? p : 0.0) : 1.0; }

}  // namespace

// ---- Commands -------------------------------------------------------------

void ArmController::openGripper() {
  if (!require_gripper(impl().setup)) {
    return;
  }
  impl().publish_gripper_distance_command(kMaxJawDistance);
}

void ArmController::closeGripper() {
  if (!require_gripper(impl().setup)) {
    return;
  }
  impl().publish_gripper_distance_command(0.0);
}

void ArmController::setGripperPosition(double p) {
  if (!require_gripper(impl().setup)) {
    return;
  }
  if (p < 0.0 || p > 1.0) {
    warn_out_of_range("position must be in [0, 1]", p);
  }
  impl().publish_gripper_distance_command(clamp_fraction(p) * kMaxJawDistance);
}

void ArmController::setGripperPosition_raw(double p) { setGripperPosition(p); }

void ArmController::setGripperDistance(double d, double speed, double force) {
  if (!require_gripper(impl().setup)) {
    return;
  }
  if (d < 0.0 || d > kMaxJawDistance) {
    warn_out_of_range("distance must be in [0mm, 85 mm]", d);
  }
  impl().publish_gripper_distance_command(d, speed, force);
}

void ArmController::setGripperDistance(double d) {
  setGripperDistance(d, kelvara::description::kDefaultGripperSpeed,
                     kelvara::description::kDefaultGripperForce);
}

// ---- Queries --------------------------------------------------------------

double ArmController::get_gripper_distance() {
  if (!require_gripper(impl().setup)) {
    return -1.0;
  }
  double distance = 0.0;
  if (!impl().state.try_get_latest_gripper_distance_state(distance)) {
    return 0.0;
  }
  return kelvara::description::clamp(distance, 0.0, kMaxJawDistance);
}

double ArmController::get_gripper_position() {
  if (!require_gripper(impl().setup)) {
    return -1.0;
  }
  return clamp_fraction(get_gripper_distance() / kMaxJawDistance);
}
