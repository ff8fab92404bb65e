#pragma once

#include <bitset>
#include <cstdint>
#include <optional>

#include "controller/thread_safety.hpp"
#include "kelvara/arm_state.hpp"

#include "motion/plan_clock.hpp"

namespace kelvara::controller {

struct GripperState {
  double position = 0.0;  // 0 closed .. 1 open
  double distance = 0.0;  // jaw distance, m
};

/// Where the command stands after a cycle.
struct StandingCommand {
  std::uint64_t number = 0;  // of the command that the cycle has executed
  PlanSample state;          // joint side
  motion::PlanClock clock;   // of a plan
  bool moving = false;       // under way to a target
  bool torque_only = false;  // the arm floats
  bool is_known = false;     // a cycle has been executed
};

/// Holds the latest feedback, joint side. The control thread writes it, any thread reads it; both
/// only copy.
class StateBuffer {
 public:
  /// @param gripper std::nullopt keeps the previous gripper state.
  void publish_state(const JointArray& q, const JointArray& dq,
                     const std::optional<GripperState>& gripper) KELVARA_EXCLUDES(state_mutex);
  void publish_torque(const JointArray& tau) KELVARA_EXCLUDES(torque_mutex);

  /// @param q     Where a motion starts: measured, or last commanded where `stale`.
  void publish_start(const JointArray& q, const std::bitset<kJointCount>& stale)
      KELVARA_EXCLUDES(state_mutex);
  /// @param number Of the command that the cycle has executed.
  void publish_arm_state(const ArmState& state, std::uint64_t number)
      KELVARA_EXCLUDES(arm_state_mutex);

  /// Copies where a motion starts, once it has been published; returns the joints whose feedback is
  /// too old.
  std::bitset<kJointCount> start_positions(JointArray& out) const KELVARA_EXCLUDES(state_mutex);
  void publish_standing(const StandingCommand& standing) KELVARA_EXCLUDES(arm_state_mutex);
  StandingCommand standing() const KELVARA_EXCLUDES(arm_state_mutex);

  /// The snapshot of the last cycle.
  /// @param number Set to that of the command that the cycle has executed, unless null.
  ArmState arm_state(std::uint64_t* number = nullptr) const KELVARA_EXCLUDES(arm_state_mutex);

  // Each copies the latest feedback; false, with `out` untouched, before there is any.
  bool try_get_latest_joint_state(JointArray& out) const KELVARA_EXCLUDES(state_mutex);
  bool try_get_latest_joint_velocity_state(JointArray& out) const KELVARA_EXCLUDES(state_mutex);
  bool try_get_latest_torque_state(JointArray& out) const KELVARA_EXCLUDES(torque_mutex);
  bool try_get_latest_gripper_state(double& out) const KELVARA_EXCLUDES(state_mutex);
  bool try_get_latest_gripper_distance_state(double& out) const KELVARA_EXCLUDES(state_mutex);

 private:
  mutable Mutex state_mutex;
  JointArray latest_q KELVARA_GUARDED_BY(state_mutex){};   // rad
  JointArray latest_dq KELVARA_GUARDED_BY(state_mutex){};  // rad/s
  bool latest_state_valid KELVARA_GUARDED_BY(state_mutex) = false;
  double latest_gripper_position KELVARA_GUARDED_BY(state_mutex) = 0.0;  // 0 closed .. 1 open
  double latest_gripper_distance KELVARA_GUARDED_BY(state_mutex) = 0.0;  // m
  bool latest_gripper_valid KELVARA_GUARDED_BY(state_mutex) = false;

  JointArray start_q_ KELVARA_GUARDED_BY(state_mutex){};  // rad
  bool start_valid_ KELVARA_GUARDED_BY(state_mutex) = false;
  std::bitset<kJointCount> start_stale_ KELVARA_GUARDED_BY(state_mutex);

  mutable Mutex arm_state_mutex;
  ArmState arm_state_ KELVARA_GUARDED_BY(arm_state_mutex);
  std::uint64_t executed_number_ KELVARA_GUARDED_BY(arm_state_mutex) = 0;
  StandingCommand standing_ KELVARA_GUARDED_BY(arm_state_mutex);

  mutable Mutex torque_mutex;
  JointArray latest_tau KELVARA_GUARDED_BY(torque_mutex){};  // N·m
  bool latest_tau_valid KELVARA_GUARDED_BY(torque_mutex) = false;
};

}  // namespace kelvara::controller
