#include "controller/bring_up.hpp"

#include <algorithm>
#include <iostream>

#include "controller/motor_parameters.hpp"
#include "controller/startup_failure.hpp"

#include "description/arm_facts.hpp"
#include "description/classic_stream.hpp"
#include "description/gripper_facts.hpp"
#include "description/timing.hpp"

namespace kelvara::controller {
namespace {

using damiao_motor::Motor;
using description::JointFacts;
using description::kQuietAfterCommandUs;

// How often the bus is drained until every motor has reported.
constexpr int kMaxDrains = 25;

/// One column of the joints' table.
template <typename Value>
std::vector<Value> facts(Value JointFacts::*member) {
  const auto values = description::column(member);
  return {values.begin(), values.end()};
}

/// Whether every motor has reported that it is enabled, or an error; the echo of a register write
/// reads as 0.
bool all_motors_reported(const std::vector<Motor>& motors) {
  return std::all_of(motors.begin(), motors.end(),
                     [](const Motor& motor) { return motor.error_code != 0; });
}

void require_safe_start(double joint2) {
  if (joint2 < description::kMinStartJoint2) {
    description::ClassicStream message;
    message << "[ArmController] Startup rejected: joint2=" << joint2
            << " rad is below the safety threshold -1.57 rad.";
    fail_startup(message.str());
  }
}

}  // namespace

void BringUp::initial_kelvara() {
  create_motors();
  hardware_.recv_all(kQuietAfterCommandUs);
  hardware_.set_timeout_all(description::kMotorTimeoutOff);
  auto& arm = hardware_.get_arm();
  arm.clrErr_all();
  arm.switch_all_motors_mode(setup_.control_mode);
  if (setup_.uses_pos_vel_mode()) {
    write_and_verify_motor_parameters(hardware_, setup_.pos_vel);
  } else {
    hardware_.recv_all(kQuietAfterCommandUs);
  }
  enable_motors();
}

void BringUp::create_motors() {
  hardware_.init_arm_motors(facts(&JointFacts::motor_type), facts(&JointFacts::can_id),
                            facts(&JointFacts::master_id));
  if (setup_.has_gripper) {
    hardware_.init_gripper_motor(description::kGripperMotorType, description::kGripperCanId,
                                 description::kGripperMasterId);
    hardware_.get_gripper().clrErr_all();
    hardware_.get_gripper().switch_all_motors_mode(damiao_motor::MIT_MODE);
  }
}

void BringUp::enable_motors() {
  hardware_.set_timeout_all(description::kMotorTimeout);
  std::cout << "\n=== Enabling Motors ===" << std::endl;
  hardware_.enable_all();
  hardware_.recv_all(kQuietAfterCommandUs);
  hardware_.set_callback_mode_all(damiao_motor::CallbackMode::STATE);
  hardware_.recv_all(description::kQuietAfterEnableUs);
  std::cout << "\n=== Enabling Motors Timeout Protection ===" << std::endl;
}

void BringUp::check_start_pose() {
  auto& arm = hardware_.get_arm();
  arm.refresh_all();
  // Until a motor reports a state, its record may hold the echo of a register write, read as if it
  // were feedback, which is not a valid start position. An answer can be late on a loaded machine.
  std::vector<Motor> motors;
  for (int drain = 0; drain < kMaxDrains; ++drain) {
    hardware_.recv_all(kQuietAfterCommandUs);
    motors = arm.get_motors();
    if (all_motors_reported(motors)) {
      break;
    }
  }
  if (motors.size() >= 2) {
    require_safe_start(setup_.motor_signs.to_joint(1, motors[1].position));
  }
}

}  // namespace kelvara::controller
