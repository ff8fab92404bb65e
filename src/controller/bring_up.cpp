#include "controller/bring_up.hpp"

#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "controller/motor_parameters.hpp"
#include "controller/recovery.hpp"
#include "controller/startup_failure.hpp"

#include "description/arm_facts.hpp"
#include "description/classic_stream.hpp"
#include "description/gripper_facts.hpp"
#include "description/timing.hpp"
#include "diagnostics/line.hpp"

namespace kelvara::controller {
namespace {

using description::JointFacts;
using description::kQuietAfterCommandUs;

// The motors' own time-out is 50 ms, and the first command must come before it expires.
constexpr std::chrono::milliseconds kFirstStatesPatience{20};
constexpr std::chrono::milliseconds kListenTime{50};
constexpr int kListenQuietUs = 1000;
constexpr int kQuietAfterAskingUs = 1000;
constexpr std::chrono::milliseconds kQueuePause{20};

/// One column of the joints' table.
template <typename Value>
std::vector<Value> facts(Value JointFacts::*member) {
  const auto values = description::column(member);
  return {values.begin(), values.end()};
}

void require_safe_start(double joint2) {
  if (joint2 < description::kMinStartJoint2) {
    description::ClassicStream message;
    message << "[ArmController] Startup rejected: joint2=" << joint2
            << " rad is below the safety threshold -1.57 rad.";
    throw StartupFailure(message.str());
  }
}

}  // namespace

void BringUp::require_sole_master() {
  const auto end = motion::Clock::now() + kListenTime;
  while (motion::Clock::now() < end) {
    feedback_.begin_round(motion::Clock::now());
    hardware_.recv_all(kListenQuietUs);
  }
  require_no_other_master();
}

void BringUp::require_no_other_master() const {
  if (feedback_.foreign_commands() > 0) {
    throw std::runtime_error("ArmController: another program commands motor " +
                             std::to_string(feedback_.foreign_motor()) + " on " +
                             hardware_.get_socket().get_interface_name() + "; end it first");
  }
}

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
  require_accepted_frames();
  diagnostics::output_line() << "\n=== Enabling Motors ===";
  hardware_.enable_all();
  hardware_.recv_all(kQuietAfterCommandUs);
  hardware_.set_callback_mode_all(damiao_motor::CallbackMode::STATE);
  hardware_.recv_all(description::kQuietAfterEnableUs);
  diagnostics::output_line() << "\n=== Enabling Motors Timeout Protection ===";
}

void BringUp::disable_after_failure() {
  // A full transmit queue empties meanwhile.
  std::this_thread::sleep_for(kQueuePause);
  hardware_.disable_all();
  hardware_.recv_all(description::kQuietAfterDisableUs);
}

/// A refused frame may be the one that sets a motor's time-out or its mode.
void BringUp::require_accepted_frames() {
  const canbus::CANSocket& socket = hardware_.get_socket();
  if (socket.refused_frames() == 0) {
    return;
  }
  const std::string name = socket.get_interface_name();
  // NOLINTNEXTLINE(concurrency-mt-unsafe): glibc's is safe for known errors
  const std::string reason = std::strerror(socket.last_write_error());
  throw std::runtime_error("ArmController: " + name + " refused " +
                           std::to_string(socket.refused_frames()) + " frames at start-up (" +
                           reason + "): raise its transmit queue with `ip link set " + name +
                           " txqueuelen 128`, and check that it is up" +
                           (socket.is_canfd_enabled() ? " and carries CAN-FD frames" : ""));
}

// ---- First states ---------------------------------------------------------

void BringUp::check_start_pose() {
  hardware_.get_arm().refresh_all();
  wait_for_first_states();
  require_accepted_frames();
  report_missing_motors();
  require_safe_start(setup_.motor_signs.to_joint(1, feedback_.motor(1).state.position));
}

/// A motor that does not echo a register write has probably missed it, unless no motor echoes.
bool BringUp::has_confirmed_timeout(std::size_t motor) const {
  return !feedback_.has_echo() || feedback_.motor(motor).timeout == description::kMotorTimeout;
}

bool BringUp::has_confirmed_mode(std::size_t motor) const {
  return !feedback_.has_echo() || feedback_.motor(motor).control_mode == mode_of(setup_, motor);
}

/// Why the motor cannot be relied on; empty when it is ready.
std::string BringUp::defect_of(std::size_t motor) const {
  const MotorFeedback::Sample& sample = feedback_.motor(motor);
  if (!sample.answered) {
    return "does not answer";
  }
  if (sample.state.error_code != damiao_motor::kEnabledCode) {
    return std::string("is not enabled: ") +
           damiao_motor::motor_error_name(sample.state.error_code);
  }
  if (!has_confirmed_timeout(motor)) {
    return "has not confirmed its time-out";
  }
  return has_confirmed_mode(motor) ? "" : "has not confirmed its control mode";
}

bool BringUp::is_ready(std::size_t motor) const { return defect_of(motor).empty(); }

/// Repeats what may have been lost.
void BringUp::ask_again(std::size_t motor) {
  const MotorFeedback::Sample& sample = feedback_.motor(motor);
  const auto [collection, index] = place_of(hardware_, motor);
  if (!has_confirmed_mode(motor)) {
    collection.switch_mode_one(index, mode_of(setup_, motor));
  }
  if (!has_confirmed_timeout(motor)) {
    collection.write_param_one(index, damiao_motor::kTimeoutRegister, description::kMotorTimeout);
  }
  if (!sample.answered) {
    collection.refresh_one(index);
  } else if (sample.state.error_code == damiao_motor::kDisabledCode) {
    collection.enable_one(index);
  }
}

/// @return whether every motor is ready.
bool BringUp::drain(int quiet_us) {
  feedback_.begin_round(motion::Clock::now());
  hardware_.recv_all(quiet_us);
  for (std::size_t i = 0; i < feedback_.motor_count(); ++i) {
    if (!is_ready(i)) {
      return false;
    }
  }
  return true;
}

void BringUp::wait_for_first_states() {
  const auto end = motion::Clock::now() + kFirstStatesPatience;
  if (drain(kQuietAfterCommandUs)) {
    return;
  }
  // The devices would take the echoes of register writes for feedback.
  hardware_.set_callback_mode_all(damiao_motor::CallbackMode::IGNORE);
  do {
    for (std::size_t i = 0; i < feedback_.motor_count(); ++i) {
      if (!is_ready(i)) {
        ask_again(i);
      }
    }
  } while (!drain(kQuietAfterAskingUs) && motion::Clock::now() < end);
  hardware_.set_callback_mode_all(damiao_motor::CallbackMode::STATE);
}

void BringUp::report_missing_motors() {
  std::string defects;
  for (std::size_t i = 0; i < feedback_.motor_count(); ++i) {
    const std::string defect = defect_of(i);
    if (defect.empty()) {
      continue;
    }
    const std::string line = "motor " + std::to_string(i + 1) + " " + defect;
    defects += (defects.empty() ? "" : ", ") + line;
    if (!setup_.require_all_motors) {
      const bool reads_zero = !feedback_.motor(i).answered;
      diagnostics::error_line() << "[ArmController] " << line
                                << (reads_zero ? "; its angle reads as zero" : "");
    }
  }
  if (setup_.require_all_motors && !defects.empty()) {
    throw std::runtime_error("ArmController: " + defects);
  }
}

}  // namespace kelvara::controller
