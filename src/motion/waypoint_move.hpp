#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "motion/setpoint.hpp"

namespace kelvara::motion {

/// One sample of a planned trajectory.
struct WaypointTrajectorySample {
  JointArray q;    // rad
  JointArray dq;   // rad/s
  JointArray ddq;  // rad/s²
};

/// The largest list of samples in bytes, 1 GiB: five hours at 400 samples per second.
constexpr std::size_t kMaxPlanBytes = std::size_t{1} << 30;

using WaypointSamples = std::shared_ptr<const std::vector<WaypointTrajectorySample>>;

/// Plays a planned trajectory, one sample per `waypoint_dt_s`. Without samples it holds the
/// measured positions.
struct WaypointMove {
  static constexpr int command_type = 3;

  JointArray target_q{};  // rad, where the plan ends
  WaypointSamples waypoints;
  double waypoint_dt_s = 0.0;
  // Set by the first cycle:
  bool waypoints_started = false;
  TimePoint waypoints_start_time{};

  void begin(const Instant& instant);
  SetPoint evaluate(const Instant& instant, const SetPointLimits& limits, Approach approach) const;
};

}  // namespace kelvara::motion
