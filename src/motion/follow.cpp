#include "motion/follow.hpp"

#include <algorithm>
#include <cmath>

#include "description/timing.hpp"
#include "motion/stop_move.hpp"

namespace kelvara::motion {
namespace {

using description::kControlPeriodS;

// Gains of the tracking, 1/s.
constexpr double kPositionGain = 20.0;
constexpr double kVelocityGain = 80.0;
// Of the limits: what an approach plans with.
constexpr double kApproachShare = 0.7;
// A stream is over when nothing has come for so many of its periods, within these bounds.
constexpr double kPatiencePeriods = 3.0;
constexpr double kMinPatienceS = 0.1;
constexpr double kMaxPatienceS = 0.5;
constexpr double kDelayPeriods = 1.5;
constexpr double kMaxPeriodS = 0.06;
constexpr double kAtRestRadPerS = 1e-9;

struct Goal {
  double q = 0.0;   // rad
  double dq = 0.0;  // rad/s
};

/// The mean time between the stamps.
double period_s(const Follow& stream) {
  if (stream.count < 2) {
    return kMaxPeriodS;
  }
  const std::size_t first = Follow::kHistory - stream.count;
  const double span = stream.targets.back().time_s - stream.targets[first].time_s;
  return std::clamp(span / static_cast<double>(stream.count - 1), kControlPeriodS, kMaxPeriodS);
}

/// The stream's own time at the controller's time `now_s`, by the target that came with the least
/// delay.
double stream_time_s(const Follow& stream, double now_s) {
  double delay = 1e300;
  for (std::size_t k = Follow::kHistory - stream.count; k < Follow::kHistory; ++k) {
    delay = std::min(delay, stream.targets[k].received_s - stream.targets[k].time_s);
  }
  return now_s - delay;
}

/// The velocity at a target: the mean slope to its neighbours.
double slope(const Follow& stream, std::size_t k, std::size_t joint) {
  const std::size_t first = Follow::kHistory - stream.count;
  const std::size_t before = k > first ? k - 1 : k;
  const std::size_t after = k + 1 < Follow::kHistory ? k + 1 : k;
  const StampedTarget& from = stream.targets[before];
  const StampedTarget& to = stream.targets[after];
  return before == after ? 0.0 : (to.q[joint] - from.q[joint]) / (to.time_s - from.time_s);
}

/// The cubic polynomial between the targets `k` and `k + 1`.
Goal interpolate(const Follow& stream, std::size_t k, std::size_t joint, double time_s) {
  const StampedTarget& from = stream.targets[k];
  const StampedTarget& to = stream.targets[k + 1];
  const double h = to.time_s - from.time_s;
  const double s = (time_s - from.time_s) / h;
  const double d = to.q[joint] - from.q[joint];
  const double m0 = h * slope(stream, k, joint);
  const double m1 = h * slope(stream, k + 1, joint);
  const double c2 = 3.0 * d - 2.0 * m0 - m1;
  const double c3 = m0 + m1 - 2.0 * d;
  return {from.q[joint] + s * (m0 + s * (c2 + s * c3)), (m0 + s * (2.0 * c2 + s * 3.0 * c3)) / h};
}

Goal goal_at(const Follow& stream, std::size_t joint, double time_s) {
  const std::size_t first = Follow::kHistory - stream.count;
  const std::size_t last = Follow::kHistory - 1;
  if (time_s <= stream.targets[first].time_s) {
    return {stream.targets[first].q[joint], 0.0};
  }
  if (time_s >= stream.targets[last].time_s) {
    return {stream.targets[last].q[joint], 0.0};
  }
  std::size_t k = first;
  while (stream.targets[k + 1].time_s < time_s) {
    ++k;
  }
  return interpolate(stream, k, joint, time_s);
}

/// A rate that goes with an error: proportional to a small one, and such that a large one can be
/// brought to zero with the deceleration `limit`.
double approach(double error, double gain, double limit) {
  return std::copysign(
      std::min(gain * std::abs(error), std::sqrt(2.0 * kApproachShare * limit * std::abs(error))),
      error);
}

/// The speed from which a joint stops within a distance, with the time that its deceleration takes
/// to build up: distance = v²/2a + v a/2j.
double stopping_speed(double distance, double a_max, double j_max) {
  const double a = kApproachShare * a_max;
  const double build_up = 0.5 * a * a / (kApproachShare * j_max);
  return std::sqrt(build_up * build_up + 2.0 * a * std::max(distance, 0.0)) - build_up;
}

JointState track(const Goal& goal, const JointState& from, double v_max, double a_max,
                 double j_max) {
  const double error = goal.q - from.q;
  const double speed =
      std::min(kPositionGain * std::abs(error), stopping_speed(std::abs(error), a_max, j_max));
  const double v = std::clamp(goal.dq + std::copysign(speed, error), -v_max, v_max);
  const double a = std::clamp(approach(v - from.dq, kVelocityGain, j_max), -a_max, a_max);
  const double step = j_max * kControlPeriodS;
  const double ddq = std::clamp(a, from.ddq - step, from.ddq + step);
  const double dq = from.dq + 0.5 * (from.ddq + ddq) * kControlPeriodS;
  return {from.q + 0.5 * (from.dq + dq) * kControlPeriodS, dq, ddq};
}

}  // namespace

void Follow::append(const StampedTarget& target) {
  if (count > 0 && !(target.time_s > targets.back().time_s)) {
    count = 0;
  }
  std::rotate(targets.begin(), targets.begin() + 1, targets.end());
  targets.back() = target;
  count = std::min(count + 1, kHistory);
}

SetPoint Follow::evaluate(const Instant& instant, const SetPointLimits& bounds,
                          Approach /*approach*/) const {
  const double period = period_s(*this);
  const double patience = std::clamp(kPatiencePeriods * period, kMinPatienceS, kMaxPatienceS);
  const bool over = instant.time_s - targets.back().received_s > patience;
  const double time_s = stream_time_s(*this, instant.time_s) - kDelayPeriods * period;
  const auto brake = [&](std::size_t i, const JointState& from) {
    return stop_inside(from, limits.acceleration[i], limits.jerk[i], i, bounds.joints)
        .at(kControlPeriodS);
  };
  PlanSample state;
  SetPoint point;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const JointState from{instant.standing.q[i], instant.standing.dq[i], instant.standing.ddq[i]};
    const double v_max = std::min(velocity[i], bounds.velocity[i]);
    const JointState next = over ? brake(i, from)
                                 : track(goal_at(*this, i, time_s), from, v_max,
                                         limits.acceleration[i], limits.jerk[i]);
    // A target near a joint limit must not carry the joint beyond it.
    const double rest = stop_joint(next, limits.acceleration[i], limits.jerk[i]).end().q;
    const bool stays_inside = bounds.joints.clamp_from(i, from.q, rest) == rest;
    const JointState to = instant.repeats ? from : (stays_inside ? next : brake(i, from));
    state.q[i] = to.q;
    state.dq[i] = to.dq;
    state.ddq[i] = to.ddq;
    point.moving = point.moving || std::abs(to.dq) > kAtRestRadPerS;
  }
  point.progress = point.moving ? 0.0 : 1.0;
  if (over && !point.moving) {
    point.end = state.q;
  }
  set_state(point, state, bounds);
  return point;
}

}  // namespace kelvara::motion
