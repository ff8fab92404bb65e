#pragma once

#include <string>
#include <vector>

#include "description/controller_settings.hpp"
#include "motion/waypoint_move.hpp"

namespace kelvara::motion {

struct WaypointPlan {
  std::vector<WaypointTrajectorySample> samples;
  /// Time mode: one line for each joint whose limits the requested time exceeds.
  std::vector<std::string> limit_reports;
};

struct WaypointOptions {
  double time_s = 0.0;      // requested total duration; 0: as the limits allow
  double speed = 1.0;       // fraction of the velocity limits, used without a requested time
  double control_hz = 400;  // samples per second
};

/// Plans one smooth motion through waypoints: quintic segments with blend velocities at the inner
/// points and zero acceleration at all, each stretched until the limits hold, then sampled. Pure;
/// linear in time and memory.
/// @param start     Where the motion begins, rad.
/// @param waypoints Points after it, inside the joint limits; repeats are dropped.
/// @param config    The limits.
/// @throws std::runtime_error for a limit that is not positive, std::length_error for more than
///         `kMaxPlanBytes` of samples, before they are allocated.
WaypointPlan plan_waypoints(const JointArray& start, const std::vector<JointArray>& waypoints,
                            const description::JointTrajectoryConfig& config,
                            const WaypointOptions& options);

}  // namespace kelvara::motion
