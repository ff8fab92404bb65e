#pragma once

#include "controller/command_slot.hpp"
#include "controller/joint_limits.hpp"

namespace kelvara::controller {

/// Seconds of one control period, 400 Hz.
inline constexpr double kControlPeriodS = 0.0025;

/// The rate-limited reference that a joint target is approached along in MIT mode.
struct MitReference {
  bool initialised = false;
  JointArray q{};   // rad
  JointArray dq{};  // rad/s
};

/// What the evaluation of a set-point needs besides the command.
struct SetPointLimits {
  JointLimits joints;
  JointArray velocity{};      // rad/s
  JointArray acceleration{};  // rad/s², of the MIT reference
};

/// One cycle's output, joint side.
struct SetPoint {
  JointArray q{};               // rad
  JointArray dq{};              // rad/s
  JointArray velocity_limit{};  // rad/s, for position/velocity mode
  /// The state that the feed-forward torque is computed for.
  JointArray model_q{};
  JointArray model_dq{};
  JointArray model_ddq{};
  bool torque_only = false;  // no position control: the arm floats
  bool completed = false;    // the move has ended; its command becomes a joint target
};

/// Evaluates the command at one instant: a function of its arguments alone, but for the MIT
/// reference, which it steps (a joint target in MIT mode) or lets go (everything else).
///
/// @param command   The standing command; a move must carry its start.
/// @param measured  Measured joint angles, rad.
/// @param now       The instant, on the clock that the command's start was taken from.
/// @param mode      The mode that the motors run in.
SetPoint evaluate_setpoint(const CommandSlot& command, const JointArray& measured, TimePoint now,
                           const SetPointLimits& limits, damiao_motor::ControlMode mode,
                           MitReference& reference);

}  // namespace kelvara::controller
