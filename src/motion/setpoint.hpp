#pragma once

#include <optional>

#include "description/joint_limits.hpp"
#include "motion/clock.hpp"
#include "motion/plan_clock.hpp"

/// Motion as pure functions of time and state: no lock, no bus, no clock of its own.
namespace kelvara::motion {

/// How a joint target is approached.
enum class Approach {
  kReference,  // along a reference whose rates the controller limits (MIT mode)
  kMotor,      // the motors limit their own rates (position/velocity mode)
};

/// The rate-limited reference that approaches a joint target.
struct MitReference {
  bool mit_ref_initialised = false;
  JointArray mit_ref_q{};   // rad
  JointArray mit_ref_dq{};  // rad/s
};

/// The bounds that a set-point keeps.
struct SetPointLimits {
  description::JointLimits joints;
  JointArray velocity{};      // rad/s
  JointArray acceleration{};  // rad/s², of the reference
  bool is_ceiling = false;    // timed moves keep `velocity`, too, and take longer
};

/// The instant at which a command is evaluated.
struct Instant {
  TimePoint now{};
  JointArray measured{};     // joint angles, rad
  MitReference reference{};  // as the cycle before left it
  PlanClock clock{};         // likewise
  /// Where the command stands: that of the cycle before, or the measured state of an arm that
  /// floats.
  PlanSample standing{};
  double speed_override = 1.0;  // of plans, 0 to 1
  double time_s = 0.0;          // the clock's own time; `now` stops where motions have to wait
  bool repeats = false;         // hardly any time has passed since the last cycle, after a late one
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
  bool torque_only = false;    // no position control: the arm floats
  bool full_dynamics = false;  // friction and the rotors' inertia count, too
  bool smooth_torque = false;  // a step to another kind of feed-forward fades out
  bool moving = false;         // under way to a target
  double progress = 1.0;       // of the motion, 0 to 1
  /// The reference for the next cycle. A joint target keeps one, and the end of a move hands its
  /// end point over; after any other command the next target's reference starts at the measured
  /// angles.
  MitReference reference;
  PlanClock clock;  // of a plan, for the next cycle
  /// Set when the move has ended: the joint target to hold from the next cycle on, rad.
  std::optional<JointArray> end;
  bool ended_early = false;  // at rest before its target
};

/// Makes `state` the set-point, with its whole dynamics.
inline void set_state(SetPoint& point, const PlanSample& state, const SetPointLimits& limits) {
  point.q = state.q;
  point.dq = state.dq;
  point.model_q = state.q;
  point.model_dq = state.dq;
  point.model_ddq = state.ddq;
  point.velocity_limit = limits.velocity;
  point.full_dynamics = true;
  point.smooth_torque = true;
  point.reference = {true, state.q, state.dq};
}

/// Holds the measured positions.
inline SetPoint hold(const JointArray& measured) {
  SetPoint point;
  point.q = measured;
  point.model_q = measured;
  return point;
}

}  // namespace kelvara::motion
