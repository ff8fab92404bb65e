#include "motion/timed_move.hpp"

#include <cmath>

namespace kelvara::motion {
namespace {

using description::clamp;

// At this duration or less the velocity, divided by it, is meaningless.
constexpr double kMinDurationS = 1e-6;

}  // namespace

void TimedMove::begin(const JointArray& measured, TimePoint now) {
  if (!traj_started) {
    traj_started = true;
    traj_start_q = measured;
    traj_start_time = now;
  }
}

SetPoint TimedMove::evaluate(const Instant& instant, const SetPointLimits& limits,
                             Approach /*approach*/) const {
  SetPoint point = hold(instant.measured);
  const double T = traj_duration_s;
  if (!(T > kMinDurationS)) {
    return point;
  }
  const double elapsed = std::chrono::duration<double>(instant.now - traj_start_time).count();
  const double s = clamp(elapsed / T, 0.0, 1.0);
  const double s3 = s * s * s;
  const double blend = s3 * s * (35.0 + s * (-84.0 + s * (70.0 - 20.0 * s)));
  const double rate = s3 * (140.0 + s * (-420.0 + s * (420.0 - 140.0 * s))) / T;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double delta = target_q[i] - traj_start_q[i];
    point.q[i] = limits.joints.clamp_to_urdf_joint_limit(i, traj_start_q[i] + delta * blend);
    point.dq[i] = delta * rate;
    point.velocity_limit[i] = clamp(std::abs(point.dq[i]), 0.0, limits.velocity[i]);
  }
  if (s >= 1.0) {
    point.end = target_q;
  }
  return point;
}

}  // namespace kelvara::motion
