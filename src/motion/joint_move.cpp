#include "motion/joint_move.hpp"

#include <algorithm>
#include <cmath>

#include "motion/limit_entry.hpp"
#include "motion/root_finding.hpp"
#include "motion/velocity_change.hpp"

namespace kelvara::motion {
namespace {

// A requested duration this much longer than the fastest, relative, is the fastest.
constexpr double kSameDuration = 1e-12;

/// A cruise at a velocity between two changes of it.
struct Cruise {
  Cruise(const JointState& start, double v, const RateLimits& limits)
      : up(start, v, limits), down({0.0, v, 0.0}, 0.0, limits) {
    distance = up.distance(start) + down.distance({0.0, v, 0.0});
    duration_s = up.duration_s() + down.duration_s();
  }

  /// How much less distance a higher velocity gains because of the changes: its derivative is
  /// the whole time less this.
  double lost_s() const { return duration_s - 0.5 * (up.fall_s + down.fall_s); }

  VelocityChange up;    // from the start to the velocity
  VelocityChange down;  // to rest
  double distance;      // of the two changes, rad
  double duration_s;    // of the two changes
};

/// Acceleration for a time, then the fastest stop.
struct Acceleration {
  Acceleration(const JointState& start, double time_s, const RateLimits& limits)
      : rise_s(std::min(time_s, std::max((limits.acceleration - start.ddq) / limits.jerk, 0.0))),
        hold_s(time_s - rise_s),
        peak(start.after(rise_s, limits.jerk).after(hold_s, 0.0)),
        stop(peak, 0.0, limits),
        // The constructor of `stop`, in another file, sets its members.
        // NOLINTNEXTLINE(clang-analyzer-optin.cplusplus.UninitializedObject)
        distance(peak.q + stop.distance(peak)) {}

  /// How the distance grows with the time, rad/s. At the peak a velocity more adds the last factor
  /// to the stop's distance; the acceleration's share follows from the stop's own course.
  double slope() const {
    const double added = peak.dq + peak.ddq * (stop.rise_s + stop.hold_s + 0.5 * stop.fall_s);
    return hold_s > 0.0 ? added : 2.0 * added;
  }

  double rise_s, hold_s;
  JointState peak;
  VelocityChange stop;
  double distance;
};

}  // namespace

JointMove::JointMove(const JointState& start, double target, const RateLimits& limits)
    : limits_(limits), entry_(enter_limits(start, limits)), target_(target) {
  const JointState& inside = entry_.end();
  const JointState origin{0.0, inside.dq, inside.ddq};
  const double distance = target - inside.q;
  direction_ = distance >= VelocityChange(origin, 0.0, limits).distance(origin) ? 1.0 : -1.0;
  start_ = origin.times(direction_);
  distance_ = direction_ * distance;
  // A state on the limits exceeds them by rounding.
  limits_.velocity = std::max({limits.velocity, start_.dq, start_.coasting_velocity(limits.jerk)});
  limits_.acceleration = std::max(limits.acceleration, std::abs(start_.ddq));
  solve();
}

void JointMove::solve() {
  const Cruise cruise(start_, limits_.velocity, limits_);
  cruises_ = cruise.distance <= distance_;
  if (cruises_) {
    peak_velocity_ = limits_.velocity;
    duration_s_ = cruise.duration_s + (distance_ - cruise.distance) / limits_.velocity;
  } else {
    const VelocityChange stop(start_, 0.0, limits_);
    const double shortest = stop.jerk > 0.0 ? stop.rise_s + stop.hold_s : 0.0;
    const double excess = std::max(distance_ - stop.distance(start_), 0.0);
    acceleration_s_ = find_root(
        [this](double time_s) -> Slope {
          const Acceleration phase(start_, time_s, limits_);
          return {phase.distance - distance_, phase.slope()};
        },
        shortest, cruise.up.rise_s + cruise.up.hold_s,
        shortest + std::cbrt(0.5 * excess / limits_.jerk));
    const Acceleration phase(start_, acceleration_s_, limits_);
    peak_velocity_ = phase.peak.coasting_velocity(limits_.jerk);
    duration_s_ = acceleration_s_ + phase.stop.duration_s();
  }
  duration_s_ += entry_.duration_s();
}

JointProfile JointMove::cruise(double velocity, double duration_s) const {
  const Cruise cruise(start_, velocity, limits_);
  JointProfile profile = entry_;
  cruise.up.append_to(profile, direction_);
  profile.append(duration_s - entry_.duration_s() - cruise.duration_s, 0.0);
  profile.begin_tail();
  cruise.down.append_to(profile, direction_);
  profile.close(target_);
  return profile;
}

JointProfile JointMove::fastest() const {
  if (cruises_) {
    return cruise(limits_.velocity, duration_s_);
  }
  const Acceleration phase(start_, acceleration_s_, limits_);
  JointProfile profile = entry_;
  profile.append(phase.rise_s, direction_ * limits_.jerk);
  profile.append(phase.hold_s, 0.0);
  profile.begin_tail();
  phase.stop.append_to(profile, direction_);
  profile.close(target_);
  return profile;
}

JointProfile JointMove::lasting(double duration_s) const {
  const double available_s = duration_s - entry_.duration_s();
  if (!(duration_s > duration_s_ * (1.0 + kSameDuration)) || !(peak_velocity_ > 0.0)) {
    return fastest();
  }
  // The distance that a cruise at `velocity` covers in the whole time.
  const double velocity = find_root(
      [this, available_s](double v) -> Slope {
        const Cruise cruise(start_, v, limits_);
        return {cruise.distance + v * (available_s - cruise.duration_s) - distance_,
                available_s - cruise.lost_s()};
      },
      0.0, peak_velocity_, std::min(peak_velocity_, distance_ / available_s));
  const Cruise solution(start_, velocity, limits_);
  const bool is_possible = solution.duration_s <= available_s * (1.0 + kSameDuration);
  return is_possible ? cruise(velocity, duration_s) : fastest();
}

JointProfile JointMove::stop(const JointState& start, const RateLimits& limits) {
  JointProfile profile = enter_limits(start, limits);
  VelocityChange(profile.end(), 0.0, limits).append_to(profile, 1.0);
  profile.begin_tail();
  profile.close(profile.end().q);
  return profile;
}

}  // namespace kelvara::motion
