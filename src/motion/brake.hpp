#pragma once

#include "motion/setpoint.hpp"

namespace kelvara::motion {

/// Brakes every joint from where it is commanded to, at its acceleration limit (faster where the
/// joint limit is nearer), and then holds it.
struct Brake {
  static constexpr int command_type = 1;  // ends as a joint target

  JointArray start_q{};   // rad
  JointArray start_dq{};  // rad/s
  // Set by the first cycle:
  bool started = false;
  TimePoint start_time{};

  void begin(const Instant& instant);
  SetPoint evaluate(const Instant& instant, const SetPointLimits& limits, Approach approach) const;
};

}  // namespace kelvara::motion
