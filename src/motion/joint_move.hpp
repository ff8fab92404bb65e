#pragma once

#include "motion/joint_profile.hpp"

namespace kelvara::motion {

/// Finds one joint's motions from any state to rest at a target, within limits of velocity,
/// acceleration and jerk.
///
/// The fastest one accelerates towards the target for a time, from which on it brakes to rest as
/// fast as it can; the farther the target, the longer that time, up to where the velocity reaches
/// its limit and the joint cruises. Towards the target is upwards when the target lies above the
/// place where the joint would rest if it braked at once, else downwards. In the frame that points
/// that way the distance is a monotone function of the time, which is solved for.
///
/// A start outside the limits is first brought inside them as fast as they allow. No motion goes
/// farther beyond its start and target than braking at once does: it leaves the position limits
/// only where that cannot be avoided.
class JointMove {
 public:
  /// @param limits Finite and positive.
  JointMove(const JointState& start, double target, const RateLimits& limits);

  /// Of the fastest motion.
  double duration_s() const { return duration_s_; }
  JointProfile fastest() const;
  /// The motion that takes `duration_s`, at least the fastest one's, by a lower velocity. Where
  /// that has no solution, because the joint is braking already, the fastest motion.
  JointProfile lasting(double duration_s) const;

  /// Brakes to rest, as fast as the limits allow.
  static JointProfile stop(const JointState& start, const RateLimits& limits);

 private:
  void solve();
  JointProfile cruise(double velocity, double duration_s) const;

  RateLimits limits_;
  JointProfile entry_;      // brings the start inside the limits
  double target_;           // rad
  double direction_ = 1.0;  // +1 or -1; the rest is seen in this direction
  JointState start_;        // at 0 rad, inside the limits
  double distance_ = 0.0;   // rad
  // The fastest motion:
  bool cruises_ = false;         // at the velocity limit
  double acceleration_s_ = 0.0;  // without cruising
  double peak_velocity_ = 0.0;   // rad/s
  double duration_s_ = 0.0;
};

}  // namespace kelvara::motion
