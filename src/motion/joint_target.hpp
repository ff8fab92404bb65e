#pragma once

#include "motion/setpoint.hpp"

namespace kelvara::motion {

/// Holds a joint target, approached within the joints' speed and acceleration limits.
struct JointTarget {
  static constexpr int command_type = 1;

  JointArray target_q{};   // rad, inside the joint limits
  JointArray target_dq{};  // rad/s, a feed-forward
  /// A target of a stream: its velocity counts for 100 ms, since the stream may have stopped.
  bool is_streamed = false;
  /// The target is where the arm stands or a motion has ended: it may lie outside the joint limits,
  /// and an arm that its load keeps away from it is not under way.
  bool is_hold = false;
  // Set by the first cycle:
  bool started = false;
  TimePoint start_time{};

  void begin(const Instant& instant);
  SetPoint evaluate(const Instant& instant, const SetPointLimits& limits, Approach approach) const;
};

}  // namespace kelvara::motion
