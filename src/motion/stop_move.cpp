#include "motion/stop_move.hpp"

#include <algorithm>
#include <limits>

#include "description/timing.hpp"
#include "motion/joint_move.hpp"

namespace kelvara::motion {
namespace {

// For joints whose configured limits are zero.
constexpr double kLeastDeceleration = 1.0;  // rad/s²
constexpr double kLeastJerk = 10.0;         // rad/s³

/// A joint on its way to a target does not pass it.
void narrow(description::JointLimits& range, std::size_t i, const PlanSample& from, double target) {
  constexpr double kEndless = std::numeric_limits<double>::infinity();
  if (!range.urdf_has_limit[i]) {
    range.urdf_lower[i] = -kEndless;
    range.urdf_upper[i] = kEndless;
    range.urdf_has_limit.set(i);
  }
  if (from.dq[i] > 0.0 && target >= from.q[i]) {
    range.urdf_upper[i] = std::min(range.urdf_upper[i], target);
  } else if (from.dq[i] < 0.0 && target <= from.q[i]) {
    range.urdf_lower[i] = std::max(range.urdf_lower[i], target);
  }
}

}  // namespace

JointProfile stop_inside(const JointState& from, double a_max, double j_max, std::size_t joint,
                         const description::JointLimits& range) {
  constexpr int kMaxHarder = 12;
  JointProfile profile = stop_joint(from, a_max, j_max);
  for (int k = 0; k < kMaxHarder; ++k) {
    const double end = profile.end().q;
    if (range.clamp_from(joint, from.q, end) == end) {
      break;
    }
    a_max *= 1.5;
    j_max *= 2.25;
    profile = stop_joint(from, a_max, j_max);
  }
  return profile;
}

JointProfile stop_joint(const JointState& from, double a_max, double j_max) {
  return JointMove::stop(from, {std::numeric_limits<double>::max(),
                                std::max(a_max, kLeastDeceleration), std::max(j_max, kLeastJerk)});
}

void StopMove::begin(const Instant& instant) {
  if (started) {
    return;
  }
  started = true;
  const PlanSample& from = instant.standing;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    if (target) {
      narrow(range, i, from, (*target)[i]);
    }
    joints[i] = stop_inside({from.q[i], from.dq[i], from.ddq[i]}, limits.acceleration[i],
                            limits.jerk[i], i, range);
    duration_s = std::max(duration_s, joints[i].duration_s());
  }
}

SetPoint StopMove::evaluate(const Instant& instant, const SetPointLimits& bounds,
                            Approach /*approach*/) const {
  SetPoint point;
  point.clock = instant.clock;
  point.clock.time_s += instant.repeats ? 0.0 : description::kControlPeriodS;
  point.moving = point.clock.time_s < duration_s;
  PlanSample state;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const JointState joint =
        point.moving ? joints[i].at(point.clock.time_s) : JointState{joints[i].end().q, 0.0, 0.0};
    state.q[i] = joint.q;
    state.dq[i] = joint.dq;
    state.ddq[i] = joint.ddq;
  }
  point.progress = point.moving ? point.clock.time_s / duration_s : 1.0;
  if (!point.moving) {
    point.end = state.q;
  }
  set_state(point, state, bounds);
  return point;
}

}  // namespace kelvara::motion
