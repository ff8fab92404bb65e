#include "motion/limit_entry.hpp"

#include <algorithm>
#include <cmath>

namespace kelvara::motion {
namespace {

// Relative; a state on a limit exceeds it by rounding.
constexpr double kRounding = 1e-12;

bool is_too_fast(const JointState& state, const RateLimits& limits) {
  return std::max(state.dq, state.coasting_velocity(limits.jerk)) >
         limits.velocity * (1.0 + kRounding);
}

/// Changes the acceleration to `target`, for no longer than until the velocity has fallen to the
/// limit for good.
void change_acceleration(JointProfile& profile, double direction, double target,
                         const RateLimits& limits) {
  const JointState from = profile.end().times(direction);
  const double jerk = target < from.ddq ? -limits.jerk : limits.jerk;
  const double excess = from.dq - limits.velocity;
  // The velocity is at its limit where ddq t + jerk t² / 2 = -excess.
  const double root = std::sqrt(std::max(from.ddq * from.ddq - 2.0 * jerk * excess, 0.0));
  const double at_limit_s = (-from.ddq - root) / jerk;
  const double at_target_s = (target - from.ddq) / jerk;
  const bool falls = jerk < 0.0 || from.ddq * from.ddq >= 2.0 * jerk * excess;
  profile.append(falls ? std::min(at_limit_s, at_target_s) : at_target_s, direction * jerk);
}

/// Brakes a joint that moves too fast in this direction.
void brake(JointProfile& profile, double direction, const RateLimits& limits) {
  // Harder braking would leave the joint too fast in the other direction.
  const double deceleration =
      std::min(limits.acceleration, std::sqrt(2.0 * limits.jerk * limits.velocity));
  change_acceleration(profile, direction, -deceleration, limits);
  profile.append((direction * profile.end().dq - limits.velocity) / deceleration, 0.0);
}

}  // namespace

JointProfile enter_limits(const JointState& start, const RateLimits& limits) {
  JointProfile profile(start);
  const double excess = std::abs(start.ddq) - limits.acceleration * (1.0 + kRounding);
  profile.append(excess / limits.jerk, std::copysign(limits.jerk, -start.ddq));
  for (const double direction : {1.0, -1.0}) {
    if (is_too_fast(profile.end().times(direction), limits)) {
      brake(profile, direction, limits);
    }
  }
  return profile;
}

}  // namespace kelvara::motion
