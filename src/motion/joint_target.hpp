#pragma once

#include "motion/setpoint.hpp"

namespace kelvara::motion {

/// Holds a joint target, approached within the joints' speed and acceleration limits.
struct JointTarget {
  static constexpr int command_type = 1;

  JointArray target_q{};   // rad, inside the joint limits
  JointArray target_dq{};  // rad/s, a feed-forward

  void begin(const JointArray& /*measured*/, TimePoint /*now*/) {}
  SetPoint evaluate(const Instant& instant, const SetPointLimits& limits, Approach approach) const;
};

}  // namespace kelvara::motion
