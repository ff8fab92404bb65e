#pragma once

#include "motion/joint_profile.hpp"
#include "motion/quintic.hpp"

namespace kelvara::motion {

/// One joint between two states: the polynomial of the fifth degree in time that meets both.
class JointSegment {
 public:
  /// @param duration_s Positive.
  JointSegment(const JointState& from, const JointState& to, double duration_s);

  JointState at(double time_s) const;
  /// The factor by which the duration must grow for the limits to hold; below 1 it may shrink.
  double stretch(const RateLimits& limits) const;

 private:
  double velocity(double t) const;
  double acceleration(double t) const;
  double jerk(double t) const { return curve_.third(t); }
  /// The largest absolute velocity between two times between which the acceleration is monotone.
  double peak_velocity(double begin_s, double end_s) const;

  Quintic<double> curve_;
  double duration_s_;
};

}  // namespace kelvara::motion
