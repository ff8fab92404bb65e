#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "controller/command_slot.hpp"
#include "controller/controller_setup.hpp"
#include "controller/motor_feedback.hpp"
#include "controller/pose_following.hpp"
#include "controller/state_buffer.hpp"
#include "controller/stop_flags.hpp"
#include "kelvara/arm_controller.hpp"
#include "kelvara/export.hpp"
#include "kelvara/hardware/kelvara.hpp"
#include "kelvara/kinematics/kinematics.hpp"

namespace kelvara::controller {
class ControlCycle;
class ControlThread;
class MonitorThread;
class MotionStarter;
class PoseSolvers;
}  // namespace kelvara::controller

namespace kelvara::controller {

/// What plans are checked against. Any thread.
class EnvironmentSlot {
 public:
  void set(std::shared_ptr<const PlanCheck> environment) KELVARA_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    environment_.swap(environment);  // the old one is freed after the lock
  }
  std::shared_ptr<const PlanCheck> get() const KELVARA_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    return environment_;
  }

 private:
  mutable Mutex mutex_;
  std::shared_ptr<const PlanCheck> environment_ KELVARA_GUARDED_BY(mutex_);
};

}  // namespace kelvara::controller

/// Composes the controller of its parts and forwards the application's commands to them.
///
/// Each part that threads share owns the mutex that guards its data. The hardware and the model's
/// torque functions belong to the control thread from `start_two_thread` until
/// `request_stop_and_join` has returned.
class KELVARA_HIDDEN ArmController::Impl {
 public:
  /// Opens the hardware, reads the configuration, brings the motors up and checks the start pose;
  /// starts no thread. Throws and ends the process as `ArmController`'s constructor does.
  Impl(const std::string& can_interface, bool bus_flag, ArmController* owner, bool with_gripper,
       kelvara::damiao_motor::ControlMode mode);
  /// The same with options; throws where the other ends the process.
  explicit Impl(const kelvara::ArmOptions& options);
  ~Impl();
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  /// Starts the control thread, then the monitor thread.
  void start_two_thread();
  /// Signals both threads to end and waits for them. May be called again.
  void request_stop_and_join();
  /// The same for good: a recovery that is under way ends first.
  void close();

  /// See `ArmController::recover`.
  bool recover();
  /// See `ArmController::state`.
  kelvara::ArmState arm_state() const;
  /// The snapshot after `cleanup()`, with what the motors last answered. Once the threads have
  /// ended.
  kelvara::ArmState closed_state() const;

  // ---- Commands, from any thread; they expect checked arguments ----
  // After a fault that stopped the arm, one that was started with options refuses them with
  // std::runtime_error.

  void publish_joint_raw_command(const std::vector<double>& q_end,
                                 const std::vector<double>& v_end);
  /// The same for a target of a stream; see `JointTarget::is_streamed`.
  void publish_streamed_command(const std::vector<double>& q_end, const std::vector<double>& v_end);
  /// Holds the arm and the gripper where they are; before the threads start.
  void publish_hold();
  void publish_joint_trajectory_command(const std::vector<double>& q_end, double tf);
  void publish_joint_waypoint_trajectory_command(const std::vector<std::vector<double>>& waypoints,
                                                 double time_sec, double speed_percent,
                                                 double control_hz);
  /// Whether commands are executed: no fault has stopped the arm.
  bool is_running() const;
  /// Refuses what nobody would execute, and after a fault.
  /// @throws std::runtime_error.
  void require_running() const;
  void publish_follow(const kelvara::JointArray& target, double time_s);
  void publish_gravity_comp_command();
  void publish_kdl_gravity_comp_command();
  /// Without a gripper these do nothing; see `CommandSlot`.
  void publish_gripper_distance_command(double d);
  void publish_gripper_distance_command(double d, double speed, double force);

  /// See `ArmController::generate_septuple_trajectory`.
  KELVARA_EXPORT static SeptupleTrajectory generate_septuple_trajectory(
      const std::vector<double>& q_start, const std::vector<double>& q_end, double tf, double freq);
  /// min(x, hi), then the larger of that and lo; NaN gives lo.
  KELVARA_EXPORT static double clamp(double x, double lo, double hi);

  kelvara::can::socket::Kelvara hardware;
  kelvara::controller::MotorFeedback feedback;
  RobotKinematics kinematics;
  const kelvara::controller::ControllerSetup setup;
  kelvara::controller::StopFlags flags;
  kelvara::controller::CommandSlot slot;
  kelvara::controller::StateBuffer state;
  kelvara::controller::EnvironmentSlot environment;
  kelvara::controller::PoseFollowing following{kinematics};
  std::atomic<bool> is_ignoring_stream{false};  // a line has reported it
  // Behind pointers, so that the command calls do not depend on the headers of the rest.
  const std::unique_ptr<kelvara::controller::PoseSolvers> poses;
  const std::unique_ptr<kelvara::controller::MotionStarter> motions;
  const std::unique_ptr<kelvara::controller::ControlCycle> cycle;

 private:
  enum class Start { kPlain, kWithOptions };
  Impl(const kelvara::ArmOptions& options, Start start);
  void bring_up(Start start);
  bool is_stopped() const;
  bool restart_threads();
  [[noreturn]] void refuse_after_fault() const;
  void require_no_fault() const;
  void publish(kelvara::motion::Command command);
  kelvara::JointArray clamp_to_limits(const std::vector<double>& q) const;

  std::shared_ptr<const kelvara::DescriptionFiles> files_;
  kelvara::controller::Mutex recovery_mutex_;
  const std::unique_ptr<kelvara::controller::ControlThread> control_;
  const std::unique_ptr<kelvara::controller::MonitorThread> monitor_;
};
