#include "motion/timed_move.hpp"

#include <algorithm>
#include <cmath>

namespace kelvara::motion {
namespace {

using description::clamp;

// At this duration or less the velocity, divided by it, is meaningless.
constexpr double kMinDurationS = 1e-6;
// Peak velocity of the polynomial, as a multiple of the mean one.
constexpr double kPeakRate = 35.0 / 16.0;

/// The duration asked for, or the longer one that a ceiling of the velocity needs.
double duration_s(const TimedMove& move, const SetPointLimits& limits) {
  double duration = move.traj_duration_s;
  for (std::size_t i = 0; limits.is_ceiling && i < kJointCount; ++i) {
    const double way = std::abs(move.target_q[i] - move.traj_start_q[i]);
    duration = std::max(duration, kPeakRate * way / limits.velocity[i]);
  }
  return duration;
}

}  // namespace

void TimedMove::begin(const Instant& instant) {
  if (!traj_started) {
    traj_started = true;
    traj_start_q = instant.measured;
    traj_start_time = instant.now;
  }
}

SetPoint TimedMove::evaluate(const Instant& instant, const SetPointLimits& limits,
                             Approach /*approach*/) const {
  SetPoint point = hold(instant.measured);
  if (!(traj_duration_s > kMinDurationS)) {
    return point;
  }
  const double T = duration_s(*this, limits);
  const double elapsed = std::chrono::duration<double>(instant.now - traj_start_time).count();
  const double s = clamp(elapsed / T, 0.0, 1.0);
  const double s3 = s * s * s;
  const double blend = s3 * s * (35.0 + s * (-84.0 + s * (70.0 - 20.0 * s)));
  const double rate = s3 * (140.0 + s * (-420.0 + s * (420.0 - 140.0 * s))) / T;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double delta = target_q[i] - traj_start_q[i];
    point.q[i] = limits.joints.clamp_from(i, traj_start_q[i], traj_start_q[i] + delta * blend);
    point.dq[i] = delta * rate;
    point.velocity_limit[i] = clamp(std::abs(point.dq[i]), 0.0, limits.velocity[i]);
  }
  point.progress = s;
  point.moving = s < 1.0;
  if (!point.moving) {
    point.end = target_q;
    point.reference = {true, point.q, JointArray{}};
  }
  return point;
}

}  // namespace kelvara::motion
