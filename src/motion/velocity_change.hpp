#pragma once

#include "motion/joint_profile.hpp"

namespace kelvara::motion {

/// The fastest change of a joint's velocity that ends without acceleration: the acceleration rises
/// (or falls), is held at its limit where it reaches that, and falls (or rises) to zero.
struct VelocityChange {
  /// @param from Inside the acceleration limit.
  /// @param velocity The velocity to end at, rad/s.
  VelocityChange(const JointState& from, double velocity, const RateLimits& limits);

  double duration_s() const { return rise_s + hold_s + fall_s; }
  /// The distance covered from `from`, rad.
  double distance(const JointState& from) const;
  /// @param direction +1 or -1: the frame of this change, seen from that of the profile.
  void append_to(JointProfile& profile, double direction) const;

  double jerk = 0.0;  // of the rise, negative for a change downwards
  double rise_s = 0.0;
  double hold_s = 0.0;
  double fall_s = 0.0;
};

}  // namespace kelvara::motion
