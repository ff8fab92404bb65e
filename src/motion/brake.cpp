#include "motion/brake.hpp"

#include <algorithm>
#include <cmath>

namespace kelvara::motion {
namespace {

// For a joint whose configured limit is zero.
constexpr double kLeastDeceleration = 1.0;  // rad/s²

/// How fast the joint must decelerate to stay inside its limits.
double deceleration(std::size_t joint, double q, double dq, const SetPointLimits& limits) {
  const double configured = std::max(limits.acceleration[joint], kLeastDeceleration);
  if (!limits.joints.urdf_has_limit[joint]) {
    return configured;
  }
  const double room =
      dq > 0.0 ? limits.joints.urdf_upper[joint] - q : q - limits.joints.urdf_lower[joint];
  return room > 0.0 ? std::max(configured, dq * dq / (2.0 * room)) : configured;
}

}  // namespace

void Brake::begin(const Instant& instant) {
  if (!started) {
    started = true;
    start_time = instant.now;
  }
}

SetPoint Brake::evaluate(const Instant& instant, const SetPointLimits& limits,
                         Approach /*approach*/) const {
  const double elapsed = std::chrono::duration<double>(instant.now - start_time).count();
  SetPoint point;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double a = deceleration(i, start_q[i], start_dq[i], limits);
    const double t = std::clamp(elapsed, 0.0, std::abs(start_dq[i]) / a);
    const double signed_a = std::copysign(a, start_dq[i]);
    point.q[i] = start_q[i] + t * (start_dq[i] - 0.5 * signed_a * t);
    point.dq[i] = start_dq[i] - signed_a * t;
    point.velocity_limit[i] = std::min(std::abs(start_dq[i]), limits.velocity[i]);
    point.moving = point.moving || elapsed < std::abs(start_dq[i]) / a;
  }
  point.progress = point.moving ? 0.0 : 1.0;
  point.model_q = point.q;
  point.model_dq = point.dq;
  point.smooth_torque = true;
  if (!point.moving) {
    point.dq = JointArray{};
    point.end = point.q;
    point.reference = {true, point.q, JointArray{}};
  }
  return point;
}

}  // namespace kelvara::motion
