#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "controller/arm_facts.hpp"
#include "controller/command_slot.hpp"
#include "controller/controller_config.hpp"
#include "controller/joint_limits.hpp"
#include "controller/pose_stream.hpp"
#include "controller/setpoint.hpp"
#include "hardware/jaw_geometry.hpp"
#include "kelvara/arm_controller.hpp"
#include "kelvara/export.hpp"
#include "kelvara/hardware/kelvara.hpp"
#include "kelvara/kinematics/kinematics.hpp"

/// All of the controller's state, and its two threads.
///
/// Three mutexes guard what threads share. Each is taken alone and only to copy; none is held while
/// anything else is called. The flags that threads poll are atomic. The hardware belongs to the
/// control thread from `start_two_thread` until `request_stop_and_join` has returned.
class KELVARA_HIDDEN ArmController::Impl {
 public:
  using JointArray = kelvara::controller::JointArray;
  using TimePoint = kelvara::controller::TimePoint;

  /// Opens the hardware, reads the configuration, brings the motors up and checks the start pose;
  /// starts no thread. Throws and ends the process as `ArmController`'s constructor does.
  Impl(const std::string& can_interface, bool bus_flag, ArmController* owner, bool with_gripper,
       kelvara::damiao_motor::ControlMode mode);

  // ---- Life cycle ----

  /// Starts `control_loop`, then `monitor_motor_torque`, each on its thread.
  void start_two_thread();
  /// Asks both threads to end and waits for them. May be called again.
  void request_stop_and_join();
  bool uses_pos_vel_mode() const { return control_mode == kelvara::damiao_motor::POS_VEL_MODE; }

  // ---- Control thread ----

  /// Runs cycles on a fixed 2.5 ms schedule until `exit_flag` is set; an overrun is caught up.
  void control_loop();
  /// Sets the loop's schedules to begin at `start`.
  void begin_loop(TimePoint start);
  /// One cycle at the instant `now`. Reports exceptions on standard error; lets none out.
  void run_cycle(TimePoint now);

  // ---- Monitor thread ----

  /// Watches the published torques in passes of 20 ms until `exit_flag` is set; sets
  /// `emergency_stop_flag` when a joint's average has been too high for too long.
  void monitor_motor_torque();

  // ---- Application threads ----

  void publish_joint_raw_command(const std::vector<double>& q_end,
                                 const std::vector<double>& v_end);
  void publish_joint_trajectory_command(const std::vector<double>& q_end, double tf);
  void publish_joint_waypoint_trajectory_command(const std::vector<std::vector<double>>& waypoints,
                                                 double time_sec, double speed_percent,
                                                 double control_hz);
  /// Joint angles for a pose, from the latest ones when no seed is given.
  std::optional<std::vector<double>> solve_ik(const std::vector<double>& target_pos,
                                              const std::vector<double>& target_euler,
                                              const std::vector<double>& q_seed);
  void publish_gravity_comp_command();
  void publish_kdl_gravity_comp_command();
  /// Jaw distance in metres, clamped; speed and force stay as they were.
  void publish_gripper_distance_command(double d);
  /// Speed, clamped to [0.1, 20], and force, to [0.1, 1], are the gripper motor's gains kp and kd.
  void publish_gripper_distance_command(double d, double speed, double force);

  KELVARA_EXPORT static SeptupleTrajectory generate_septuple_trajectory(
      const std::vector<double>& q_start, const std::vector<double>& q_end, double tf, double freq);

  /// Each copies the latest feedback; false, with `out` untouched, before there is any.
  bool try_get_latest_joint_state(JointArray& out);
  bool try_get_latest_joint_velocity_state(JointArray& out);
  bool try_get_latest_torque_state(JointArray& out);
  bool try_get_latest_gripper_state(double& out);
  bool try_get_latest_gripper_distance_state(double& out);

  /// min(x, hi), then the larger of that and lo; NaN gives lo.
  KELVARA_EXPORT static double clamp(double x, double lo, double hi);
  double clamp_to_urdf_joint_limit(int joint, double q) const;

  static constexpr double gripper_max_distance = kelvara::can::socket::kMaxJawDistance;  // m

  // ---- Command slot ----
  std::mutex command_mutex;
  kelvara::controller::CommandSlot command;  // guarded by command_mutex

  // ---- Latest feedback, joint side ----
  std::mutex state_mutex;
  JointArray latest_q{};                 // rad
  JointArray latest_dq{};                // rad/s
  bool latest_state_valid = false;       // the five below, too, guarded by state_mutex
  double latest_gripper_position = 0.0;  // 0 closed .. 1 open
  double latest_gripper_distance = 0.0;  // m
  bool latest_gripper_valid = false;

  std::mutex torque_mutex;
  JointArray latest_tau{};        // N·m
  bool latest_tau_valid = false;  // guarded by torque_mutex

  // ---- Poses ----
  std::mutex kinematics_mutex;                  // one pose calculation at a time
  kelvara::controller::PoseStream pose_stream;  // of the one thread that streams poses

  // ---- Flags polled by the threads ----
  std::atomic<bool> exit_flag{false};
  std::atomic<bool> emergency_stop_flag{false};

  // ---- Fixed after construction ----
  const bool has_gripper;
  const kelvara::damiao_motor::ControlMode control_mode;
  kelvara::controller::PosVelModeConfig pos_vel_config;
  kelvara::controller::MitModeConfig mit_config;
  kelvara::controller::JointTrajectoryConfig joint_trajectory_config;
  JointArray motor_signs{};
  kelvara::controller::SetPointLimits limits;

  // ---- Control thread alone, once it runs ----
  kelvara::can::socket::Kelvara hardware;
  RobotKinematics kinematics;
  kelvara::controller::MitReference mit_reference;
  bool pos_vel_gravity_warned = false;
  TimePoint next_cycle{};
  TimePoint next_feedback{};
  TimePoint next_gripper_send{};
  TimePoint next_clip_report{};
  std::uint64_t tau_clipped_count = 0;

 private:
  // Start-up, in startup.cpp
  void load_configuration();
  void initial_kelvara();
  void write_and_verify_motor_parameters();
  void check_start_pose();

  // The steps of a cycle, in control_loop.cpp
  void run_cycle_steps(TimePoint now);
  JointArray update_feedback(TimePoint now);
  void publish_state(const JointArray& q, const JointArray& dq);
  void stop_for_emergency();
  kelvara::controller::CommandSlot take_snapshot(const JointArray& measured, TimePoint now);
  void complete_command(const kelvara::controller::CommandSlot& finished);
  void send_mit(const kelvara::controller::SetPoint& point);
  void send_pos_vel(const kelvara::controller::SetPoint& point);
  void relax_gripper();
  void send_gripper(const kelvara::controller::CommandSlot& snapshot, TimePoint now);
  void report_clipping(TimePoint now);

  std::thread control_thread;
  std::thread monitor_thread;
};
