#include "controller/arm_controller_impl.hpp"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "controller/bring_up.hpp"
#include "controller/control_cycle.hpp"
#include "controller/control_thread.hpp"
#include "controller/monitor_thread.hpp"
#include "controller/motion_starter.hpp"
#include "controller/pose_solvers.hpp"
#include "controller/realtime.hpp"
#include "controller/startup_failure.hpp"
#include "controller/state_report.hpp"

#include "diagnostics/line.hpp"
#include "motion/septic_trajectory.hpp"

using kelvara::JointArray;
namespace controller = kelvara::controller;

namespace {

using kelvara::ArmCondition;
using kelvara::ArmOptions;
using kelvara::controller::StopFlags;

// Longer than a recovery can take.
constexpr std::chrono::seconds kRecoveryPatience{3};
constexpr std::chrono::milliseconds kRecoveryPoll{2};

const ArmOptions& checked(const ArmOptions& options) {
  const auto require = [](bool holds, const char* message) {
    if (!holds) {
      throw std::invalid_argument(message);
    }
  };
  require(!options.interface.empty(), "ArmOptions: interface must not be empty");
  require(options.velocity_scale > 0.0 && options.velocity_scale <= 1.0,
          "ArmOptions: velocity_scale must be in (0, 1]");
  require(options.realtime_priority >= 0 && options.realtime_priority <= 99,
          "ArmOptions: realtime_priority must be in [0, 99]");
  require(options.cpu >= -1, "ArmOptions: cpu must be -1 or a processor's number");
  return options;
}

ArmOptions plain_options(const std::string& interface, bool can_fd, bool with_gripper,
                         kelvara::damiao_motor::ControlMode mode) {
  ArmOptions options;
  options.interface = interface;
  options.can_fd = can_fd;
  options.with_gripper = with_gripper;
  options.mode = mode;
  options.require_all_motors = false;
  options.on_fault = kelvara::FaultReaction::kReport;
  return options;
}

controller::SetupRequest to_request(const ArmOptions& options, bool with_options) {
  return {.with_gripper = options.with_gripper,
          .mode = options.mode,
          .require_limits = with_options,
          .exit_on_unreadable_file = !with_options,
          .velocity_scale = with_options ? options.velocity_scale : 0.0,
          .started_with_options = with_options,
          .require_all_motors = options.require_all_motors,
          .on_fault = options.on_fault};
}

}  // namespace

ArmController::Impl::Impl(const std::string& can_interface, bool bus_flag, ArmController* /*owner*/,
                          bool with_gripper, kelvara::damiao_motor::ControlMode mode)
    : Impl(plain_options(can_interface, bus_flag, with_gripper, mode), Start::kPlain) {}

ArmController::Impl::Impl(const ArmOptions& options) : Impl(options, Start::kWithOptions) {}

ArmController::Impl::Impl(const ArmOptions& options, Start start)
    : hardware((start == Start::kPlain ? options : checked(options)).interface, options.can_fd),
      feedback(options.with_gripper),
      kinematics(options.urdf_path, options.settings_path),
      setup(controller::load_setup(to_request(options, start == Start::kWithOptions), kinematics)),
      poses(std::make_unique<controller::PoseSolvers>(kinematics)),
      motions(std::make_unique<controller::MotionStarter>(setup, kinematics, slot, state)),
      cycle(std::make_unique<controller::ControlCycle>(controller::ControlCycle::Parts{
          hardware, kinematics, setup, feedback, slot, state, flags})),
      files_(std::make_shared<const kelvara::DescriptionFiles>(kinematics.description_files())),
      control_(std::make_unique<controller::ControlThread>(
          *cycle, flags, controller::RealtimeSettings{options.realtime_priority, options.cpu})),
      monitor_(std::make_unique<controller::MonitorThread>(state, flags)) {
  if (options.lock_memory) {
    controller::lock_memory();  // takes long, and the motors must not wait for it
  }
  bring_up(start);
}

void ArmController::Impl::bring_up(Start start) {
  hardware.set_frame_observer(&feedback);
  controller::BringUp bring_up(hardware, setup, feedback);
  if (start == Start::kWithOptions) {
    bring_up.require_sole_master();
  }
  try {
    bring_up.initial_kelvara();
    bring_up.check_start_pose();
    if (start == Start::kWithOptions) {
      bring_up.require_no_other_master();
      cycle->publish_first_state(kelvara::motion::Clock::now());
    }
  } catch (const controller::StartupFailure& failure) {
    if (start == Start::kPlain) {
      controller::fail_startup(failure.what());
    }
    bring_up.disable_after_failure();
    throw;
  } catch (...) {
    bring_up.disable_after_failure();
    throw;
  }
}

ArmController::Impl::~Impl() = default;

void ArmController::Impl::start_two_thread() {
  control_->start();
  monitor_->start();
}

bool ArmController::Impl::is_stopped() const {
  if (flags.faulted || flags.emergency_stop_flag || flags.exit_flag) {
    return true;
  }
  const ArmCondition condition = state.arm_state().condition;
  return condition == ArmCondition::kMotorFault || condition == ArmCondition::kBusSilent;
}

bool ArmController::Impl::recover() {
  const controller::MutexLock lock(recovery_mutex_);
  if (!is_stopped()) {
    return true;
  }
  flags.recovery = StopFlags::Recovery::kRequested;
  const auto end = kelvara::motion::Clock::now() + kRecoveryPatience;
  const auto is_under_way = [this] {
    return flags.recovery == StopFlags::Recovery::kRequested ||
           flags.recovery == StopFlags::Recovery::kRunning;
  };
  while (is_under_way() && kelvara::motion::Clock::now() < end) {
    if (flags.closing || (flags.exit_flag && !restart_threads())) {
      flags.recovery = StopFlags::Recovery::kFailed;
    }
    std::this_thread::sleep_for(kRecoveryPoll);
  }
  return flags.recovery == StopFlags::Recovery::kDone;
}

/// Starts the threads again, which have ended or are about to. Without a thread the stop stands.
bool ArmController::Impl::restart_threads() {
  request_stop_and_join();
  const bool was_overloaded = flags.emergency_stop_flag;
  flags.emergency_stop_flag = false;
  flags.exit_flag = false;
  try {
    start_two_thread();
    flags.overloaded_joint = 0;
    return true;
  } catch (const std::system_error& error) {
    request_stop_and_join();
    flags.emergency_stop_flag = was_overloaded;
    kelvara::diagnostics::error_line() << "[ArmController] no thread: " << error.what();
    return false;
  }
}

void ArmController::Impl::close() {
  flags.closing = true;
  const controller::MutexLock lock(recovery_mutex_);  // a recovery ends first
  request_stop_and_join();
  slot.abandon(kelvara::MotionOutcome::kStopped);
}

kelvara::ArmState ArmController::Impl::closed_state() const {
  kelvara::ArmState snapshot = arm_state();
  controller::report_motors(snapshot, feedback, kelvara::motion::Clock::now());
  snapshot.condition = ArmCondition::kClosed;
  snapshot.reason = kelvara::StopReason::kClosed;
  snapshot.reason_motor = 0;
  return snapshot;
}

kelvara::ArmState ArmController::Impl::arm_state() const {
  std::uint64_t executed = 0;
  const std::uint64_t latest = slot.number();
  kelvara::ArmState snapshot = state.arm_state(&executed);
  if (snapshot.condition == ArmCondition::kHolding && executed < latest) {
    snapshot.condition = ArmCondition::kMoving;  // the next cycle begins the command
    snapshot.progress = 0.0;
  }
  snapshot.files = files_;
  snapshot.counters.refused_frames = hardware.get_socket().refused_frames();
  snapshot.counters.dropped_lines = kelvara::diagnostics::dropped_lines();
  return snapshot;
}

void ArmController::Impl::request_stop_and_join() {
  flags.exit_flag = true;
  control_->join();
  monitor_->join();
}

void ArmController::Impl::require_no_fault() const {
  if (setup.started_with_options && (flags.emergency_stop_flag || flags.faulted)) {
    refuse_after_fault();
  }
}

bool ArmController::Impl::is_running() const {
  return !flags.emergency_stop_flag && !flags.faulted && !flags.exit_flag;
}

void ArmController::Impl::require_running() const {
  if (flags.emergency_stop_flag || flags.faulted) {
    refuse_after_fault();
  }
  if (flags.exit_flag) {
    throw std::runtime_error("ArmController: the control thread has ended");
  }
}

void ArmController::Impl::refuse_after_fault() const {
  const bool overloaded = flags.emergency_stop_flag;
  const controller::FaultText fault(
      overloaded ? kelvara::StopReason::kTorqueLimit : flags.fault_reason.load(),
      overloaded ? flags.overloaded_joint : flags.faulty_motor);
  throw std::runtime_error(std::string("ArmController: ") + fault.c_str() +
                           "; call recover() before the next command");
}

SeptupleTrajectory ArmController::Impl::generate_septuple_trajectory(
    const std::vector<double>& q_start, const std::vector<double>& q_end, double tf, double freq) {
  return kelvara::motion::generate_septuple_trajectory(q_start, q_end, tf, freq);
}

double ArmController::Impl::clamp(double x, double lo, double hi) {
  return kelvara::description::clamp(x, lo, hi);
}
