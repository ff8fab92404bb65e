#include "simulation/simulated_arm/simulated_arm.hpp"

#include <algorithm>
#include <cmath>

namespace kelvara::simulation {
namespace {

std::optional<Contacts> contacts_of(const SimulatedArm::Options& options) {
  return options.scene ? std::optional(Contacts{*options.scene, options.with_gripper})
                       : std::nullopt;
}

}  // namespace

SimulatedArm::SimulatedArm(const RobotDescription& description, const Options& options)
    : physics_(description, options.load_kg, contacts_of(options)) {
  std::copy_n(description.motor_signs.begin(), signs_.size(), signs_.begin());
  const std::size_t count = options.with_gripper ? kMotors.size() : kJointCount;
  for (std::size_t i = 0; i < count; ++i) {
    motors_.emplace_back(kMotors[i].model, kMotors[i].can_id, kMotors[i].master_id);
  }
  set_joint_positions(options.start);
  physics_.require_no_overlap();
}

void SimulatedArm::receive(const canfd_frame& frame, std::vector<canfd_frame>& replies) {
  for (SimulatedMotor& motor : motors_) {
    if (const auto reply = motor.handle(frame)) {
      replies.push_back(*reply);
    }
  }
}

void SimulatedArm::set_joint_positions(const Joints& q) {
  physics_.set_positions(q);
  for (std::size_t i = 0; i < q.size(); ++i) {
    motors_[i].advance(0.0, q[i] * signs_[i], 0.0);
  }
}

SimulatedArm::Joints SimulatedArm::joint_torques() const {
  Joints torque;
  for (std::size_t i = 0; i < torque.size(); ++i) {
    torque[i] = motors_[i].applied_torque() * signs_[i];
  }
  return torque;
}

bool SimulatedArm::floats() const {
  return std::all_of(motors_.begin(), motors_.begin() + kJointCount,
                     [](const SimulatedMotor& motor) { return motor.floats(); });
}

std::size_t SimulatedArm::enabled_motor_count() const {
  return static_cast<std::size_t>(
      std::count_if(motors_.begin(), motors_.end(),
                    [](const SimulatedMotor& motor) { return motor.is_enabled(); }));
}

void SimulatedArm::advance(std::chrono::nanoseconds time) {
  constexpr std::chrono::milliseconds kStep{1};
  for (pending_ += time; pending_ >= kStep; pending_ -= kStep) {
    step();
  }
}

void SimulatedArm::step() {
  const Joints q = physics_.positions();
  const Joints dq = physics_.velocities();
  Joints torque;
  for (std::size_t i = 0; i < torque.size(); ++i) {
    torque[i] =
        motors_[i].advance(ArmPhysics::kStepS, q[i] * signs_[i], dq[i] * signs_[i]) * signs_[i];
  }
  in_cradle_ = in_cradle_ && std::none_of(motors_.begin(), motors_.begin() + kJointCount,
                                          [](const auto& motor) { return motor.is_enabled(); });
  if (physics_.has_jaws()) {
    physics_.set_jaw_torque(motors_[kGripper].advance(
        ArmPhysics::kStepS, physics_.jaw_motor_angle(), physics_.jaw_motor_velocity()));
  }
  step_body(torque);
  if (motors_.size() > kGripper && !physics_.has_jaws()) {
    step_gripper();
  }
}

void SimulatedArm::step_body(const Joints& torque) {
  if (!in_cradle_) {
    physics_.step(torque);
  } else if (physics_.has_contacts()) {
    physics_.step_at_rest();
  }
}

double SimulatedArm::gripper_angle() const {
  return physics_.has_jaws() ? physics_.jaw_motor_angle() : gripper_angle_;
}

/// The jaws without contacts: one hinge between two stops.
void SimulatedArm::step_gripper() {
  constexpr double kStepS = ArmPhysics::kStepS;
  const double torque = motors_[kGripper].advance(kStepS, gripper_angle_, gripper_velocity_);
  gripper_velocity_ += kStepS / kJaws.inertia * torque;
  gripper_velocity_ /= 1.0 + kStepS * kJaws.viscous / kJaws.inertia;
  gripper_angle_ += kStepS * gripper_velocity_;
  if (gripper_angle_ < kJawOpenAngle || gripper_angle_ > kJawClosedAngle) {
    gripper_angle_ = std::clamp(gripper_angle_, kJawOpenAngle, kJawClosedAngle);
    gripper_velocity_ = 0.0;
  }
}

}  // namespace kelvara::simulation
