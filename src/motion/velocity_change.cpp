#include "motion/velocity_change.hpp"

#include <algorithm>
#include <cmath>

namespace kelvara::motion {

VelocityChange::VelocityChange(const JointState& from, double velocity, const RateLimits& limits) {
  const double J = limits.jerk;
  const double A = limits.acceleration;
  const double sign = velocity >= from.coasting_velocity(J) ? 1.0 : -1.0;
  const double a = sign * from.ddq;
  const double dv = sign * (velocity - from.dq);
  // Rising from a to the peak and falling to zero adds (2 peak² - a²) / 2J to the velocity.
  const double peak_squared = J * dv + 0.5 * a * a;
  const bool is_held = peak_squared > A * A;
  const double peak = is_held ? A : std::sqrt(std::max(peak_squared, 0.0));
  jerk = sign * J;
  rise_s = std::max((peak - a) / J, 0.0);
  hold_s = is_held ? (peak_squared - A * A) / (J * A) : 0.0;
  fall_s = peak / J;
}

double VelocityChange::distance(const JointState& from) const {
  const JointState start{0.0, from.dq, from.ddq};
  return start.after(rise_s, jerk).after(hold_s, 0.0).after(fall_s, -jerk).q;
}

void VelocityChange::append_to(JointProfile& profile, double direction) const {
  profile.append(rise_s, direction * jerk);
  profile.append(hold_s, 0.0);
  profile.append(fall_s, -direction * jerk);
}

}  // namespace kelvara::motion
