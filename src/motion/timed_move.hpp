#pragma once

#include "motion/setpoint.hpp"

namespace kelvara::motion {

/// Moves from the measured pose of its first cycle to a target in a given time, at rest at both
/// ends, along a polynomial of the seventh degree.
struct TimedMove {
  static constexpr int command_type = 2;

  JointArray target_q{};  // rad, inside the joint limits
  double traj_duration_s = 0.0;
  // Set by the first cycle:
  bool traj_started = false;
  JointArray traj_start_q{};  // rad
  TimePoint traj_start_time{};

  void begin(const Instant& instant);
  /// A duration of 1e-6 s or less, or NaN, holds the measured positions and never ends.
  SetPoint evaluate(const Instant& instant, const SetPointLimits& limits, Approach approach) const;
};

}  // namespace kelvara::motion
