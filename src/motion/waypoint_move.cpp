#include "motion/waypoint_move.hpp"

#include <cmath>

namespace kelvara::motion {

namespace {

// Of a sample period: cycles that are whole periods apart must not fall before their sample.
constexpr double kRounding = 1e-6;

}  // namespace

using description::clamp;

void WaypointMove::begin(const Instant& instant) {
  if (!waypoints_started) {
    waypoints_started = true;
    waypoints_start_time = instant.now;
  }
}

SetPoint WaypointMove::evaluate(const Instant& instant, const SetPointLimits& limits,
                                Approach /*approach*/) const {
  SetPoint point = hold(instant.measured);
  if (!waypoints || waypoints->empty()) {
    return point;
  }
  const std::size_t last = waypoints->size() - 1;
  const double elapsed = std::chrono::duration<double>(instant.now - waypoints_start_time).count();
  // Bounded before it becomes an index: it may lie far beyond the list.
  const auto k = static_cast<std::size_t>(
      clamp(std::floor(elapsed / waypoint_dt_s + kRounding), 0.0, static_cast<double>(last)));
  const WaypointTrajectorySample& sample = (*waypoints)[k];
  for (std::size_t i = 0; i < kJointCount; ++i) {
    point.q[i] = limits.joints.clamp_from(i, waypoints->front().q[i], sample.q[i]);
    point.velocity_limit[i] = clamp(std::abs(sample.dq[i]), 0.0, limits.velocity[i]);
  }
  point.dq = sample.dq;
  point.model_q = point.q;
  point.model_dq = point.dq;
  point.model_ddq = sample.ddq;
  point.progress = last == 0 ? 1.0 : static_cast<double>(k) / static_cast<double>(last);
  point.moving = k < last;
  if (!point.moving) {
    point.end = target_q;
    point.reference = {true, point.q, JointArray{}};
  }
  return point;
}

}  // namespace kelvara::motion
