#include "motion/follow.hpp"

#include <algorithm>
#include <cmath>

#include "description/timing.hpp"
#include "motion/goal_tracking.hpp"
#include "motion/stop_move.hpp"
#include "motion/target_fit.hpp"

namespace kelvara::motion {
namespace {

using description::kControlPeriodS;

// A stream is over when nothing has come for so many of its periods, within these bounds.
constexpr double kPatiencePeriods = 3.0;
constexpr double kMinPatienceS = 0.1;
constexpr double kMaxPatienceS = 0.5;
constexpr double kDelayPeriods = 1.5;
// Between the targets that are kept.
constexpr double kMinSpacingS = 0.005 - 1e-6;
// How far beyond a joint limit rounding can put the end of a stop.
constexpr double kRoundingRad = 1e-10;
constexpr double kAtRestRadPerS = 1e-9;

/// The stream's own time at the controller's time `now_s`, by the target that came with the least
/// delay.
double stream_time_s(const Follow& stream, double now_s) {
  double delay = 1e300;
  for (std::size_t k = Follow::kHistory - stream.count; k < Follow::kHistory; ++k) {
    delay = std::min(delay, stream.targets[k].received_s - stream.targets[k].time_s);
  }
  return now_s - delay;
}

/// Brakes a joint within its limits, harder only where a joint limit is nearer.
JointState brake(const JointState& from, const RateLimits& limits, std::size_t joint,
                 const description::JointLimits& range) {
  const JointProfile stop = stop_joint(from, limits.acceleration, limits.jerk);
  const double q = stop.end().q;
  const bool is_inside = std::abs(range.clamp_from(joint, from.q, q) - q) <= kRoundingRad;
  return (is_inside ? stop : stop_inside(from, limits.acceleration, limits.jerk, joint, range))
      .at(kControlPeriodS);
}

/// Whether a joint that brakes now stops inside its range, widened to contain `start`. False for a
/// state that is NaN: stamps of any size are accepted, and can overflow the fit.
bool stops_inside(const JointState& state, const RateLimits& limits, std::size_t joint,
                  double start, const description::JointLimits& range) {
  const auto contains = [&](double q) { return range.clamp_from(joint, start, q) == q; };
  // No stop goes farther than its largest velocity for its whole time.
  const double speed = std::abs(state.dq) + state.ddq * state.ddq / (2.0 * limits.jerk);
  const double time_s =
      (std::abs(state.ddq) + limits.acceleration) / limits.jerk + speed / limits.acceleration;
  return (contains(state.q - speed * time_s) && contains(state.q + speed * time_s)) ||
         contains(stop_joint(state, limits.acceleration, limits.jerk).end().q);
}

/// A goal inside the joint's limits.
JointState inside(const JointState& goal, std::size_t joint,
                  const description::JointLimits& range) {
  const double q = range.clamp_to_urdf_joint_limit(joint, goal.q);
  return q == goal.q ? goal : JointState{q, 0.0, 0.0};
}

/// What every joint of a stream shares at one instant.
struct Playback {
  Playback(const Follow& stream, double now_s)
      : fit(stream),
        time_s(stream_time_s(stream, now_s) - kDelayPeriods * fit.period_s()),
        is_over(now_s - stream.targets.back().received_s >
                std::clamp(kPatiencePeriods * fit.period_s(), kMinPatienceS, kMaxPatienceS)) {}

  TargetFit fit;
  double time_s;  // the stream's own
  bool is_over;
};

/// The next state of a joint: towards the stream, unless that is over or leads beyond a joint
/// limit.
JointState next_state(const Playback& playback, const JointState& from, std::size_t joint,
                      const RateLimits& limits, double catch_up,
                      const description::JointLimits& range) {
  if (playback.is_over || !(std::min({limits.velocity, limits.acceleration, limits.jerk}) > 0.0)) {
    return brake(from, limits, joint, range);
  }
  const StreamGoal goal = playback.fit.at(playback.time_s, joint, limits);
  const JointState next =
      track(inside(goal.state, joint, range), from, limits, goal.pole, catch_up);
  return stops_inside(next, limits, joint, from.q, range) ? next
                                                          : brake(from, limits, joint, range);
}

}  // namespace

void Follow::append(const StampedTarget& target) {
  if (count > 0 && !(target.time_s > targets.back().time_s)) {
    count = 0;
  }
  if (count > 1 && target.time_s - targets[kHistory - 2].time_s < kMinSpacingS) {
    targets.back() = target;
    return;
  }
  std::rotate(targets.begin(), targets.begin() + 1, targets.end());
  targets.back() = target;
  count = std::min(count + 1, kHistory);
}

SetPoint Follow::evaluate(const Instant& instant, const SetPointLimits& bounds,
                          Approach /*approach*/) const {
  const Playback playback(*this, instant.time_s);
  PlanSample state;
  SetPoint point;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const JointState from{instant.standing.q[i], instant.standing.dq[i], instant.standing.ddq[i]};
    const RateLimits rates{std::min(velocity[i], bounds.velocity[i]), limits.acceleration[i],
                           limits.jerk[i]};
    const JointState to = instant.repeats ? from
                                          : next_state(playback, from, i, rates,
                                                       catch_up * velocity[i], bounds.joints);
    state.q[i] = to.q;
    state.dq[i] = to.dq;
    state.ddq[i] = to.ddq;
    point.moving = point.moving || std::abs(to.dq) > kAtRestRadPerS;
  }
  point.progress = point.moving ? 0.0 : 1.0;
  if (playback.is_over && !point.moving) {
    point.end = state.q;
  }
  set_state(point, state, bounds);
  return point;
}

}  // namespace kelvara::motion
