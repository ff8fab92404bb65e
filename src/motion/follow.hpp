#pragma once

#include <array>
#include <cstddef>
#include <memory>

#include "motion/motion_status.hpp"
#include "motion/setpoint.hpp"

namespace kelvara::motion {

/// One target of a stream.
struct StampedTarget {
  double time_s = 0.0;      // on the stream's own clock
  double received_s = 0.0;  // on the controller's clock
  JointArray q{};           // rad, inside the joint limits
};

/// Follows a stream of stamped targets within the limits of velocity, acceleration and jerk. Plays
/// the stream back late by one and a half of its own periods, so that targets which arrive with
/// jitter, early or late, still lie on both sides of the present. Only joints that are behind, at
/// the start or after a jump of the targets, move faster than the stream. A stream that stops
/// brakes to rest.
struct Follow {
  static constexpr int command_type = 8;
  static constexpr std::size_t kHistory = 40;

  JointArray velocity{};  // rad/s
  double catch_up = 1.0;  // of `velocity`: how much faster than the stream a joint may move
  SmoothLimits limits;
  std::array<StampedTarget, kHistory> targets{};  // the latest last
  std::size_t count = 0;

  /// Appends a target; drops the oldest one, or of targets within 5 ms the last one. A stamp that
  /// does not lie after the last one starts the stream again.
  void append(const StampedTarget& target);

  void begin(const Instant& /*instant*/) {}
  SetPoint evaluate(const Instant& instant, const SetPointLimits& limits, Approach approach) const;
};

}  // namespace kelvara::motion
