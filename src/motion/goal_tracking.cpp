#include "motion/goal_tracking.hpp"

#include <algorithm>
#include <cmath>

#include "description/timing.hpp"
#include "motion/joint_move.hpp"
#include "motion/limit_entry.hpp"
#include "motion/velocity_change.hpp"

namespace kelvara::motion {
namespace {

using description::kControlPeriodS;

// The distance from which the linear law with the fastest pole needs the whole jerk, and the
// fastest pole that the control period allows, 1/s.
constexpr double kNearRad = 2e-3;
constexpr double kFastestPole = 60.0;
// The error at which half of the goal's velocity counts: of the distance in which a joint stops
// from that velocity, and this much more. A smaller share can leave the joint behind a steady goal;
// with a larger one the joint swings farther than a goal that is too fast for it.
constexpr double kLostShare = 0.6;
constexpr double kLostRad = 0.01;
// Where the goal moves at the velocity limit, what is left for the approach.
constexpr double kLeastApproachRadPerS = 1e-3;

/// How fast the joint may approach the goal from either side.
struct ApproachSpeeds {
  double up;    // rad/s
  double down;  // rad/s
};

/// The joint may move faster than the goal by `catch_up`, and where the goal comes towards it, with
/// that velocity against the goal. Seen from something that moves at `own_velocity`.
ApproachSpeeds approach_speeds(double goal_velocity, double own_velocity, double v_max,
                               double catch_up) {
  const double up = std::min(v_max, std::max(goal_velocity, 0.0) + catch_up) - own_velocity;
  const double down = std::min(v_max, std::max(-goal_velocity, 0.0) + catch_up) + own_velocity;
  return {std::max(up, kLeastApproachRadPerS), std::max(down, kLeastApproachRadPerS)};
}

/// The goal with as much of its motion as the joint keeps up with: all of it near the goal, none
/// far away. A joint that cannot keep up then follows the places of the goal, not its motion, and
/// goes no farther than these.
JointState within_reach(const JointState& goal, double error, const RateLimits& limits) {
  const double speed = std::abs(goal.dq);
  const double stop =
      0.5 * speed * (speed / limits.acceleration + limits.acceleration / limits.jerk);
  const double lost = error / (kLostShare * stop + kLostRad);
  const double share = 1.0 / (1.0 + lost * lost);
  return {goal.q, share * goal.dq, share * share * goal.ddq};
}

/// The next state of a joint on its way to rest at 0.
JointState approach(const JointState& from, const ApproachSpeeds& speeds, RateLimits limits,
                    double pole) {
  const JointState share{-pole * pole * pole * from.q, -3.0 * pole * pole * from.dq,
                         -3.0 * pole * from.ddq};
  const JointState next = from.after(kControlPeriodS, share.q + share.dq + share.ddq);
  if (std::abs(share.q) + std::abs(share.dq) + std::abs(share.ddq) <= limits.jerk &&
      std::max(std::abs(from.ddq), std::abs(next.ddq)) <= limits.acceleration) {
    return next;
  }
  const bool is_below = from.q + VelocityChange(from, 0.0, limits).distance(from) <= 0.0;
  limits.velocity = is_below ? speeds.up : speeds.down;
  return JointMove(from, 0.0, limits).fastest().at(kControlPeriodS);
}

/// The next state of a joint that changes its velocity as fast as it can.
JointState approach_velocity(const JointState& from, double velocity, const RateLimits& limits) {
  JointProfile profile = enter_limits(from, limits);
  VelocityChange(profile.end(), velocity, limits).append_to(profile, 1.0);
  profile.append(kControlPeriodS, 0.0);
  return profile.at(kControlPeriodS);
}

}  // namespace

double fastest_pole(double jerk) { return std::min(std::cbrt(jerk / kNearRad), kFastestPole); }

JointState track(const JointState& goal, const JointState& from, const RateLimits& limits,
                 double pole, double catch_up) {
  const JointState frame = within_reach(goal, from.q - goal.q, limits);
  const JointState offset =
      approach({from.q - frame.q, from.dq - frame.dq, from.ddq - frame.ddq},
               approach_speeds(goal.dq, frame.dq, limits.velocity, catch_up),
               {limits.velocity, limits.acceleration - std::abs(frame.ddq), limits.jerk}, pole);
  const JointState there = frame.after(kControlPeriodS, 0.0);
  const JointState next{there.q + offset.q, there.dq + offset.dq, there.ddq + offset.ddq};
  const double velocity = next.coasting_velocity(limits.jerk);
  if (std::max(std::abs(velocity), std::abs(next.dq)) > limits.velocity) {
    return approach_velocity(from, std::copysign(limits.velocity, velocity), limits);
  }
  return next;
}

}  // namespace kelvara::motion
