#include "motion/stop_move.hpp"

#include <algorithm>
#include <cmath>

#include "description/timing.hpp"

namespace kelvara::motion {
namespace {

StopProfile::State advance(const StopProfile::State& from, double jerk, double t) {
  return {from.q + t * (from.dq + t * (0.5 * from.ddq + t * jerk / 6.0)),
          from.dq + t * (from.ddq + 0.5 * t * jerk), from.ddq + t * jerk};
}

}  // namespace

StopProfile::StopProfile(double q, double dq, double ddq, double a_max, double j_max)
    : q0(q), dq0(dq), ddq0(ddq) {
  // The velocity that would remain if the acceleration went to zero at once.
  const double rest_dq = dq + 0.5 * ddq * std::abs(ddq) / j_max;
  const double sign = rest_dq > 0.0 ? -1.0 : 1.0;  // of the braking acceleration
  const double v = -sign * dq;                     // to brake, in a frame where braking is negative
  const double a = -sign * ddq;
  const double bound = std::max(a_max, std::abs(a));
  const double peak = std::min(bound, std::sqrt(std::max(0.0, j_max * v + 0.5 * a * a)));
  jerk = sign * j_max;
  ramp_s = std::max(0.0, (a + peak) / j_max);
  const double ramped = v + ramp_s * (a - 0.5 * j_max * ramp_s);
  const double release = 0.5 * peak * peak / j_max;
  hold_s = peak > 0.0 ? std::max(0.0, (ramped - release) / peak) : 0.0;
  release_s = peak / j_max;
}

StopProfile::State StopProfile::at(double time_s) const {
  const double t = std::clamp(time_s, 0.0, duration_s());
  State state = advance({q0, dq0, ddq0}, jerk, std::min(t, ramp_s));
  state = advance(state, 0.0, std::clamp(t - ramp_s, 0.0, hold_s));
  state = advance(state, -jerk, std::max(t - ramp_s - hold_s, 0.0));
  if (time_s >= duration_s()) {
    state.dq = 0.0;
    state.ddq = 0.0;
  }
  return state;
}

namespace {

/// Inside the joint limits, or not further out than the start.
bool ends_inside(const StopProfile& profile, std::size_t joint,
                 const description::JointLimits& range) {
  const double end = profile.end();
  return range.clamp_from(joint, profile.q0, end) == end;
}

/// The profile at the limits, or the gentlest one that stays inside the joint limits.
StopProfile stop_joint(const PlanSample& state, std::size_t i, const RateLimits& rates,
                       const description::JointLimits& range) {
  constexpr int kMaxHarder = 12;
  double a_max = std::max(rates.acceleration[i], 1.0);
  double j_max = std::max(rates.jerk[i], 10.0);
  StopProfile profile(state.q[i], state.dq[i], state.ddq[i], a_max, j_max);
  for (int k = 0; k < kMaxHarder && !ends_inside(profile, i, range); ++k) {
    a_max *= 1.5;
    j_max *= 2.25;
    profile = StopProfile(state.q[i], state.dq[i], state.ddq[i], a_max, j_max);
  }
  return profile;
}

}  // namespace

void StopMove::begin(const Instant& instant) {
  if (started) {
    return;
  }
  started = true;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    joints[i] = stop_joint(instant.standing, i, limits, range);
    duration_s = std::max(duration_s, joints[i].duration_s());
  }
}

SetPoint StopMove::evaluate(const Instant& instant, const SetPointLimits& bounds,
                            Approach /*approach*/) const {
  SetPoint point;
  point.clock = instant.clock;
  point.clock.time_s += description::kControlPeriodS;
  PlanSample state;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const StopProfile::State joint = joints[i].at(point.clock.time_s);
    state.q[i] = joint.q;
    state.dq[i] = joint.dq;
    state.ddq[i] = joint.ddq;
  }
  point.moving = point.clock.time_s < duration_s;
  point.progress = point.moving ? point.clock.time_s / duration_s : 1.0;
  if (!point.moving) {
    point.end = state.q;
  }
  set_state(point, state, bounds);
  return point;
}

}  // namespace kelvara::motion
