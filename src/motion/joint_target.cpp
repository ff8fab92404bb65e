#include "motion/joint_target.hpp"

#include <cmath>

#include "description/timing.hpp"

namespace kelvara::motion {
namespace {

using description::clamp;
using description::kControlPeriodS;

// Gain from the distance to the target to the reference's velocity, 1/s.
constexpr double kReferenceGain = 8.0;
// After this long without a new target the velocity of a stream no longer counts.
constexpr std::chrono::milliseconds kStreamPatience{100};
// A joint this close to its target is not under way to it.
constexpr double kAtRestRadPerS = 1e-3;
constexpr double kArrivedRad = 1e-4;          // the reference, MIT mode
constexpr double kArrivedMeasuredRad = 0.02;  // the arm, position/velocity mode

/// One joint's reference after one period.
struct Step {
  double q;    // rad
  double dq;   // rad/s
  double ddq;  // rad/s²
};

/// @param target    Target angle and velocity.
/// @param last      The reference before.
Step step_reference(std::size_t joint, double target_q, double target_dq, double last_q,
                    double last_dq, const SetPointLimits& limits) {
  const double dv = limits.acceleration[joint] * kControlPeriodS;
  const double v_max = limits.velocity[joint];
  double v = clamp((target_q - last_q) * kReferenceGain + target_dq, -v_max, v_max);
  v = clamp(v, last_dq - dv, last_dq + dv);
  const double candidate = last_q + v * kControlPeriodS;
  const bool short_of_target = (target_q - last_q) * (target_q - candidate) > 0.0;
  if (!short_of_target) {
    return {target_q, v, 0.0};
  }
  return {limits.joints.clamp_from(joint, last_q, candidate), v, (v - last_dq) / kControlPeriodS};
}

double target_of(const JointTarget& command, std::size_t joint, const SetPointLimits& limits) {
  const double q = command.target_q[joint];
  return command.is_hold ? q : limits.joints.clamp_to_urdf_joint_limit(joint, q);
}

/// Moves the reference one period towards the target.
SetPoint follow_reference(const JointTarget& command, const Instant& instant,
                          const SetPointLimits& limits) {
  const MitReference& before = instant.reference;
  const JointArray& start = before.mit_ref_initialised ? before.mit_ref_q : instant.measured;
  const JointArray start_dq = before.mit_ref_initialised ? before.mit_ref_dq : JointArray{};
  const bool stalled = command.is_streamed && instant.now - command.start_time > kStreamPatience;
  SetPoint point;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double target = target_of(command, i, limits);
    const double target_dq = stalled ? 0.0 : command.target_dq[i];
    const Step step = step_reference(i, target, target_dq, start[i], start_dq[i], limits);
    point.moving = point.moving || std::abs(target - step.q) > kArrivedRad ||
                   std::abs(step.dq) > kAtRestRadPerS;
    point.q[i] = step.q;
    point.dq[i] = step.dq;
    point.model_ddq[i] = step.ddq;
  }
  point.progress = point.moving ? 0.0 : 1.0;
  point.model_q = point.q;
  point.model_dq = point.dq;
  point.reference = {true, point.q, point.dq};
  return point;
}

SetPoint send_target(const JointTarget& command, const Instant& instant,
                     const SetPointLimits& limits) {
  SetPoint point;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    point.q[i] = target_of(command, i, limits);
    const bool has_arrived = std::abs(point.q[i] - instant.measured[i]) <= kArrivedMeasuredRad;
    point.moving = point.moving || !(command.is_hold || has_arrived);
  }
  point.progress = point.moving ? 0.0 : 1.0;
  point.velocity_limit = limits.velocity;
  return point;
}

}  // namespace

void JointTarget::begin(const Instant& instant) {
  if (!started) {
    started = true;
    start_time = instant.now;
  }
}

SetPoint JointTarget::evaluate(const Instant& instant, const SetPointLimits& limits,
                               Approach approach) const {
  return approach == Approach::kReference ? follow_reference(*this, instant, limits)
                                          : send_target(*this, instant, limits);
}

}  // namespace kelvara::motion
