#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <Eigen/Core>

#include "kelvara/arm_options.hpp"
#include "kelvara/arm_state.hpp"
#include "kelvara/damiao_motor/dm_motor_control.hpp"
#include "kelvara/export.hpp"
#include "kelvara/motion/motion_handle.hpp"
#include "kelvara/motion/planner.hpp"
#include "kelvara/move_options.hpp"
#include "kelvara/pose.hpp"
#include "kelvara/septuple_trajectory.hpp"

namespace kelvara {
class PlanCheck;
}

/// Drives a six-joint arm on one CAN interface from a 400 Hz control thread of its own, beside a
/// thread that watches the joints' torques.
///
/// Commands check their arguments, replace the current command (there is no queue; the last writer
/// wins) and return at once; the control thread acts on it in its next cycle. Queries copy the
/// latest feedback, at most some milliseconds old. Both may be called from any thread, but not
/// while `cleanup()` or the destructor runs; after `cleanup()` all but `state()` throw
/// std::runtime_error. Joint vectors hold six values, joint 1 (at the base) first; radians, rad/s,
/// N·m.
///
/// An arm that was started with options refuses commands after a fault that has stopped it, with
/// std::runtime_error, until `recover()`; gripper commands are accepted.
///
/// Only the process that constructed it drives the arm: in a child of `fork()`, `cleanup()`, the
/// destructor and `exit()` do nothing, and commands and queries throw std::runtime_error.
class KELVARA_EXPORT ArmController {
 public:
  class Impl;

  /// Opens the bus, reads the robot description, brings the motors up in the given mode, starts the
  /// threads, closes the gripper and sends the arm to the all-zero pose in 2 s: the arm moves.
  /// Blocks some 10 ms in MIT mode and some 220 ms in position/velocity mode, 20 ms more when a
  /// motor does not answer.
  ///
  /// Ends the whole process with status 1, after a line on standard error, when a motor parameter
  /// reads back different from the configured one, when joint 2 starts below -1.57 rad, and when
  /// the YAML file can no longer be opened or parsed after the kinematics have been read from it.
  /// @param with_gripper  true: a gripper motor is fitted.
  /// @param can_interface Interface name, for example "can0"; must be up.
  /// @param bus_flag      true: CAN-FD frames, false: classic ones.
  /// @param mode          `MIT_MODE` or `POS_VEL_MODE`.
  /// @throws kelvara::canbus::CANSocketException when the interface cannot be opened.
  /// @throws std::runtime_error for a robot description that is missing or malformed, with masses,
  ///         inertias or lengths that are not finite, with swapped limits, a joint that does not
  ///         turn, or negative or NaN gains and limits in `pos_vel_mode` or `mit_mode`; and when
  ///         the interface refuses a frame (a full transmit queue, or no CAN-FD).
  /// @throws std::invalid_argument for another mode, or motor signs other than +1 and -1.
  ArmController(bool with_gripper, const std::string& can_interface, bool bus_flag,
                kelvara::damiao_motor::ControlMode mode);
  /// Starts with options: by default the arm holds where it is. What ends the process above throws
  /// std::runtime_error here; so do a joint that lacks a limit and is not continuous, another
  /// program that commands the motors (heard for 50 ms before the first frame) and, unless
  /// switched off, a motor that does not answer. After an exception every motor is disabled.
  /// @throws std::invalid_argument, std::runtime_error and kelvara::canbus::CANSocketException as
  ///         above; std::invalid_argument also for options out of range.
  explicit ArmController(const kelvara::ArmOptions& options);
  /// `cleanup()`.
  ~ArmController();

  ArmController(const ArmController&) = delete;
  ArmController& operator=(const ArmController&) = delete;

  /// Stops both threads, disables all motors (an arm without brakes sinks) and releases
  /// everything. Only the first call acts. Blocks for some 20 ms at most; never throws.
  void cleanup();

  /// One coherent snapshot of the last control cycle: motion, motors, condition and counters. Does
  /// not allocate and never waits for the bus. A command that the next cycle begins counts as
  /// moving already. While the control thread is stopped (after the torque monitor, or `kDisable`)
  /// the snapshot does not change until `recover()`; after `cleanup()` it is the last one, closed.
  kelvara::ArmState state() const;
  /// After a stop of the torque monitor, a motor's error or a silent bus: clears the errors,
  /// enables the motors and holds the arm where it is. Blocks until every motor answers as an
  /// enabled one, a second at most. Does nothing when there is nothing to recover from. Any
  /// thread.
  /// @return true when no fault remains; false when a motor still reports an error or does not
  ///         answer: see `state()`.
  /// @throws std::runtime_error after `cleanup()`.
  bool recover();
  /// The two files that describe the arm.
  /// @throws std::runtime_error after `cleanup()`.
  kelvara::DescriptionFiles description_files() const;

  /// Holds a joint target, approached within the joints' speed and acceleration limits.
  /// @param q_end Target angles, clamped to the joint limits.
  /// @param v_end Target velocities, a feed-forward in MIT mode; not clamped itself, the resulting
  ///              reference velocity is.
  /// @throws std::invalid_argument "q_end length does not match num_joints", "v_end length does
  ///         not match num_joints", "q_end must be finite", "v_end must be finite".
  void set_joint_raw(const std::vector<double>& q_end, const std::vector<double>& v_end);
  /// Moves from the present pose to a target in a given time, at rest at both ends (a polynomial of
  /// the seventh degree in time), then holds it.
  /// @param q_end Target angles, clamped to the joint limits.
  /// @param tf    Duration in seconds; the resulting speed is limited by
  ///              `ArmOptions::velocity_scale` alone, which makes the move longer. With 1e-6 or
  ///              less, or NaN, the arm stays where it is until the next command, in MIT mode
  ///              without stiffness.
  /// @throws std::invalid_argument "q_end size mismatch", "tf must be positive", "q_end must be
  ///         finite".
  void set_joint(const std::vector<double>& q_end, double tf);

  /// Moves through waypoints in one smooth motion from where the arm is, then holds the last one.
  /// Plans on the caller's thread before anything changes. The plan's memory (144 bytes per sample)
  /// is released by the next command after its end, or by `cleanup()`.
  /// @param waypoints     Points of six angles each, clamped to the joint limits.
  /// @param time_sec      Total duration in s; 0: as fast as the limits allow. A time too short for
  ///                      the limits is reported on standard error for each joint, and kept as
  ///                      far as `ArmOptions::velocity_scale` allows.
  /// @param speed_percent Fraction of the velocity limits, (0, 1]. Takes precedence over
  ///                      `time_sec`; pass 0 to leave it unset. With neither, the configured
  ///                      default fraction.
  /// @param control_hz    Samples per second; the control loop's rate is 400, and the least with
  ///                      options.
  /// @throws std::invalid_argument "waypoints must not be empty", "control_hz must be positive",
  ///         "time_sec must be non-negative", "speed_percent must be in (0, 1] when provided",
  ///         "each waypoint must have exactly 6 joint values", "waypoints must be finite".
  /// @throws std::runtime_error before the first feedback, and for limits that are not positive.
  /// @throws std::length_error for a plan of more than 1 GiB (some five hours at 400 samples per
  ///         second), before memory is allocated; std::bad_alloc when there is less memory.
  void move_joint_waypoints(const std::vector<std::vector<double>>& waypoints, double time_sec,
                            double speed_percent, double control_hz);

  /// Moves the tool to a pose in `tf` seconds, straight in joint space. Without a solution it
  /// prints a line and does nothing.
  /// @param target_pos   x, y, z in the base frame, m.
  /// @param target_euler Roll, pitch, yaw, rad.
  /// @throws std::invalid_argument "target_pos must have exactly 3 elements.", "target_euler must
  ///         have exactly 3 elements.", and as `set_joint`.
  void set_end_effector_pose(const std::vector<double>& target_pos,
                             const std::vector<double>& target_euler, double tf);
  /// Streams a pose: called 100 times per second or more, it makes the tool follow, with a filtered
  /// velocity as feed-forward. Ignores a pose that is not finite, has the wrong size or is out of
  /// reach. Must not be called from two threads at once.
  void set_end_effector_pose_raw(const std::vector<double>& target_pos,
                                 const std::vector<double>& target_euler);
  /// Joint angles for a pose, clamped to the joint limits; nothing moves.
  /// @param q_seed Six angles to start from; empty: the latest measured ones.
  /// @return nothing when the solver fails.
  /// @throws std::invalid_argument "target_pos and target_euler must both have exactly 3
  ///         elements.", "q_seed must have exactly 6 elements when provided."
  std::optional<std::vector<double>> solve_ik(const std::vector<double>& target_pos,
                                              const std::vector<double>& target_euler,
                                              const std::vector<double>& q_seed);
  /// The measured tool pose: x, y, z in m, roll, pitch, yaw in rad.
  std::array<double, 6> get_end_effector_pose();

  // ---- Planned motion ----
  //
  // These calls plan on the caller's thread from where the command stands (not from where the
  // loaded arm hangs), check the whole plan and then start it: what cannot be done throws, and
  // nothing changes. They return while the arm moves; the handle waits for its end. The arm then
  // holds the last sample. A plan is executed with the whole inverse dynamics as feed-forward, one
  // sample per control cycle, so that a late cycle delays it and never makes a larger step.
  //
  // All throw MotionError for what the arm cannot do, std::invalid_argument for values that are not
  // finite or out of range, and std::runtime_error after a fault, until `recover()`.

  /// Moves to joint angles as fast as the limits allow at the speed of the options; all joints
  /// arrive together. While another plan is executed, it continues from that one's motion without a
  /// stop; after any other command in motion it brakes first, which blocks for tenths of a second.
  /// @param target Joint angles, rad, inside the joint limits.
  kelvara::MotionHandle move_joint(const std::array<double, 6>& target,
                                   const kelvara::MoveOptions& options = {});
  /// Moves the tool on a straight line, its orientation on the shortest rotation. An arm that
  /// moves is braked first, which blocks for some tenths of a second.
  kelvara::MotionHandle move_linear(const kelvara::Pose& end,
                                    const kelvara::MoveOptions& options = {});
  /// Moves the tool on the circle through where it stands, `via` and `end`; likewise.
  /// @param via Its rotation is ignored.
  kelvara::MotionHandle move_arc(const kelvara::Pose& via, const kelvara::Pose& end,
                                 const kelvara::MoveOptions& options = {});
  /// Moves along segments with rounded corners; likewise.
  kelvara::MotionHandle move_path(const std::vector<kelvara::PathSegment>& segments,
                                  const kelvara::MoveOptions& options = {});
  /// Starts a plan that was made before. It must begin at rest within 1 mrad of where the command
  /// stands, `state().q_command`, end at rest, keep the joint limits and the speed ceiling, and not
  /// jump; the arm must hold. A plan made with wider limits than the arm's is executed as long as
  /// the torques that it needs stay inside theirs and never step by more than 2 N·m.
  kelvara::MotionHandle execute(const kelvara::Plan& plan);
  /// Brakes within the limits of acceleration and jerk, then holds: a plan on its path, any other
  /// motion and a floating arm joint by joint. The handle is done when the arm is at rest. A stream
  /// that goes on is ignored; every other call moves the arm again. Does nothing after a fault,
  /// which has stopped the arm already; the handle's outcome is `kFault`.
  kelvara::MotionHandle stop();

  /// Slows plans down, smoothly: 0 pauses them, 1 is their own speed. Stays until the next call,
  /// for later plans too. Any thread.
  /// @throws std::invalid_argument outside [0, 1].
  void set_speed_override(double fraction);
  double speed_override() const;

  /// Follows a stream of joint angles within the limits of velocity, acceleration and jerk. Call it
  /// 20 to 1000 times per second; jitter of a period does no harm. The arm lags by one and a half
  /// periods, at least 6 ms. Far from the targets it moves at most the fraction
  /// `default_speed_percent` of the velocity limits faster than they do. A stream that stops brakes
  /// the arm after 0.1 to 0.5 s. After `stop()` the targets of the stream that goes on have no
  /// effect until another motion is commanded or its time starts again. Any thread; does not block.
  /// @param target Joint angles, rad, clamped to the joint limits.
  /// @param time_s When the target belongs, on any clock that runs in seconds; a time that is not
  ///               later than the last one starts the stream again.
  /// @throws std::invalid_argument for a NaN or infinite value.
  void follow(const std::array<double, 6>& target, double time_s);
  /// The same for poses, by the solution next to the pose before, at first next to where the
  /// command stands. A template, so that a list in braces means joint angles.
  /// @throws kelvara::MotionError for a pose without a solution, and `kBranchChange` for one that
  ///         the arm reaches from there only in another configuration: this target is left out.
  template <typename Target,
            typename = std::enable_if_t<std::is_same<Target, kelvara::Pose>::value>>
  void follow(const Target& target, double time_s) {
    follow_pose(target, time_s);
  }

  /// The tool pose at the measured joint angles.
  kelvara::Pose pose() const;
  /// The tool pose where the command stands.
  kelvara::Pose commanded_pose() const;
  /// Makes plans with this arm's model and limits; valid as long as the controller.
  /// @param speed As in `MoveOptions`.
  kelvara::MotionPlanner planner(double speed = 0.0) const;
  /// What every move and plan is checked against before it starts; null: nothing.
  void set_environment(std::shared_ptr<const kelvara::PlanCheck> environment);

  /// Lets the arm float: in MIT mode the motors carry gravity alone, so that a hand can move it. In
  /// position/velocity mode the arm stays where it is, with a warning. Both names do the same.
  void identify_gravity_compensation();
  void identify_gravity_compensation_kdl();

  /// Gripper commands: the jaw distance is held until the next one. Without a gripper they print a
  /// line on standard output and do nothing. Values out of range are clamped, with a warning.
  void openGripper();
  void closeGripper();
  /// @param p Fraction of the full opening, 0 (closed) to 1; NaN opens, without a warning.
  void setGripperPosition(double p);
  void setGripperPosition_raw(double p);
  /// @param d     Jaw distance in metres, 0 to 0.085; NaN closes, without a warning.
  /// @param speed Position gain of the gripper's motor, clamped to [0.1, 20] N·m/rad.
  /// @param force Velocity gain of the gripper's motor, clamped to [0.1, 1] N·m·s/rad.
  void setGripperDistance(double d, double speed, double force);
  /// With speed 8 and force 0.1.
  void setGripperDistance(double d);
  /// The measured opening as a fraction, 0 to 1; 0 before the first feedback, -1 without a gripper.
  double get_gripper_position();
  /// The measured jaw distance in metres; 0 before the first feedback, -1 without a gripper.
  double get_gripper_distance();

  /// Samples a move from rest to rest, velocity, acceleration and jerk zero at both ends (a
  /// polynomial of the seventh degree in time). Pure: any thread; nothing moves.
  /// @param q_start,q_end Six angles each, or one each for all joints.
  /// @param tf            Duration, s.
  /// @param freq          Samples per second; the last sample is `q_end` exactly.
  /// @throws std::invalid_argument "q_start/q_end length must be num_joints or 1", "tf must be
  ///         positive", "freq must be positive".
  /// @throws std::runtime_error for a `tf` outside 1e-40 to 1e40, and where 1 / freq overflows.
  /// @throws std::length_error for more than 1 GiB of samples, std::bad_alloc when there is less
  ///         memory.
  static SeptupleTrajectory generate_septuple_trajectory(const std::vector<double>& q_start,
                                                         const std::vector<double>& q_end,
                                                         double tf, double freq);

  /// Measured joint angles; six zeros before the first feedback.
  std::array<double, 6> joint_positions() const;
  /// Measured joint velocities; six zeros before the first feedback.
  std::array<double, 6> joint_velocities() const;
  /// Measured joint torques; six zeros before the first feedback.
  std::array<double, 6> joint_torques() const;

  /// The same as Eigen vectors, created in the application's own code.
  KELVARA_INLINE Eigen::VectorXd get_joint() { return to_eigen(joint_positions()); }
  KELVARA_INLINE Eigen::VectorXd get_joint_velocities() { return to_eigen(joint_velocities()); }
  KELVARA_INLINE Eigen::VectorXd get_joint_torques() { return to_eigen(joint_torques()); }

 private:
  Impl& impl() const;
  void follow_pose(const kelvara::Pose& target, double time_s);
  KELVARA_INLINE static Eigen::VectorXd to_eigen(const std::array<double, 6>& values) {
    return Eigen::Map<const Eigen::VectorXd>(values.data(), 6);
  }

  std::atomic<bool> cleaned_up{false};
  std::unique_ptr<Impl> impl_;
  kelvara::ArmState closed_state_;  // set by `cleanup()`
};
