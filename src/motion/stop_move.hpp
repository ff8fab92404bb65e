#pragma once

#include <memory>

#include "motion/motion_status.hpp"
#include "motion/setpoint.hpp"

namespace kelvara::motion {

/// One joint that brakes to rest as fast as acceleration and jerk allow.
struct StopProfile {
  StopProfile() = default;
  /// @param q,dq,ddq The joint's state, rad, rad/s, rad/s².
  /// @param a_max,j_max Limits, above zero; an acceleration beyond `a_max` is not raised.
  StopProfile(double q, double dq, double ddq, double a_max, double j_max);

  struct State {
    double q, dq, ddq;
  };
  State at(double time_s) const;
  double duration_s() const { return ramp_s + hold_s + release_s; }
  /// Where the joint comes to rest, rad.
  double end() const { return at(duration_s()).q; }

  double q0 = 0.0, dq0 = 0.0, ddq0 = 0.0;
  double jerk = 0.0;  // signed: of the ramp; the release has the opposite
  double ramp_s = 0.0, hold_s = 0.0, release_s = 0.0;
};

/// Brakes every joint to rest from where the command stands, within the limits of acceleration and
/// jerk (harder where a joint limit is nearer), and then holds it. Advances one period per cycle.
struct StopMove {
  static constexpr int command_type = 7;

  RateLimits limits;
  description::JointLimits range;
  std::shared_ptr<MotionHandle::Status> status;
  // Set by the first cycle:
  bool started = false;
  std::array<StopProfile, kJointCount> joints{};
  double duration_s = 0.0;

  void begin(const Instant& instant);
  SetPoint evaluate(const Instant& instant, const SetPointLimits& limits, Approach approach) const;
};

}  // namespace kelvara::motion
