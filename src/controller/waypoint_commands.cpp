#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "controller/arm_controller_impl.hpp"

#include "description/finite.hpp"
#include "description/timing.hpp"
#include "diagnostics/line.hpp"
#include "motion/waypoint_planner.hpp"

using kelvara::JointArray;
using kelvara::kJointCount;
namespace motion = kelvara::motion;

namespace {

void check_arguments(const std::vector<std::vector<double>>& waypoints, double time_sec,
                     double speed_percent, double control_hz) {
  if (waypoints.empty()) {
    throw std::invalid_argument("waypoints must not be empty");
  }
  if (control_hz <= 0.0) {
    throw std::invalid_argument("control_hz must be positive");
  }
  if (time_sec < 0.0) {
    throw std::invalid_argument("time_sec must be non-negative");
  }
  if (speed_percent > 1.0) {
    throw std::invalid_argument("speed_percent must be in (0, 1] when provided");
  }
}

void check_waypoint(const std::vector<double>& waypoint) {
  if (waypoint.size() != kJointCount) {
    throw std::invalid_argument("each waypoint must have exactly 6 joint values");
  }
  if (!kelvara::description::all_finite(waypoint)) {
    throw std::invalid_argument("waypoints must be finite");
  }
}

/// A speed takes precedence over a time; without either the default speed applies.
motion::WaypointOptions choose_options(double time_sec, double speed_percent, double control_hz,
                                       double default_speed) {
  motion::WaypointOptions options;
  options.control_hz = control_hz;
  if (speed_percent > 0.0) {
    options.speed = speed_percent;
  } else if (time_sec > 0.0) {
    options.time_s = time_sec;
  } else {
    options.speed = default_speed;
  }
  return options;
}

/// By how much a plan exceeds a ceiling of the velocities; at most 1 when it does not.
double excess(const std::vector<motion::WaypointTrajectorySample>& samples,
              const JointArray& ceiling) {
  double factor = 0.0;
  for (const motion::WaypointTrajectorySample& sample : samples) {
    for (std::size_t i = 0; i < kJointCount; ++i) {
      factor = std::max(factor, std::abs(sample.dq[i]) / ceiling[i]);
    }
  }
  return factor;
}

/// Plans; again in a longer time while the plan exceeds a ceiling of the velocities.
motion::WaypointPlan plan_below_ceiling(const JointArray& start,
                                        const std::vector<JointArray>& points,
                                        const kelvara::description::JointTrajectoryConfig& config,
                                        motion::WaypointOptions options,
                                        const motion::SetPointLimits& limits) {
  // At least one sample for each segment, so that every attempt takes longer.
  const double least_s = static_cast<double>(points.size()) / options.control_hz;
  motion::WaypointPlan plan = motion::plan_waypoints(start, points, config, options);
  while (limits.is_ceiling) {
    const double factor = excess(plan.samples, limits.velocity);
    if (!(factor > 1.0)) {
      break;
    }
    const double duration_s = static_cast<double>(plan.samples.size() - 1) / options.control_hz;
    options = {.time_s = std::max(duration_s * factor, duration_s + least_s),
               .control_hz = options.control_hz};
    plan = motion::plan_waypoints(start, points, config, options);
  }
  return plan;
}

motion::WaypointMove to_command(std::vector<motion::WaypointTrajectorySample> samples,
                                double control_hz) {
  const JointArray end = samples.back().q;
  return {.target_q = end,
          .waypoints = std::make_shared<const std::vector<motion::WaypointTrajectorySample>>(
              std::move(samples)),
          .waypoint_dt_s = 1.0 / control_hz};
}

}  // namespace

void ArmController::move_joint_waypoints(const std::vector<std::vector<double>>& waypoints,
                                         double time_sec, double speed_percent, double control_hz) {
  impl().publish_joint_waypoint_trajectory_command(waypoints, time_sec, speed_percent, control_hz);
}

void ArmController::Impl::publish_joint_waypoint_trajectory_command(
    const std::vector<std::vector<double>>& waypoints, double time_sec, double speed_percent,
    double control_hz) {
  check_arguments(waypoints, time_sec, speed_percent, control_hz);
  const kelvara::description::JointTrajectoryConfig& config = setup.joint_trajectory;
  if (setup.limits.is_ceiling) {  // a coarser plan would step faster than the ceiling
    control_hz = std::max(control_hz, 1.0 / kelvara::description::kControlPeriodS);
  }
  const motion::WaypointOptions options =
      choose_options(time_sec, speed_percent, control_hz, config.default_speed_percent);
  std::vector<JointArray> points;
  points.reserve(waypoints.size());
  for (const std::vector<double>& waypoint : waypoints) {
    check_waypoint(waypoint);
    points.push_back(clamp_to_limits(waypoint));
  }
  JointArray start{};
  if (!state.try_get_latest_joint_state(start)) {
    throw std::runtime_error("cannot plan waypoint trajectory before joint state is available");
  }
  const std::bitset<kJointCount> stale = state.start_positions(start);
  for (std::size_t i = 0; i < kJointCount; ++i) {
    if (stale[i]) {
      kelvara::diagnostics::error_line()
          << "[move_joint_waypoints] joint " << i + 1
          << " does not answer: the plan starts from its last commanded position";
    }
  }
  require_no_fault();
  motion::WaypointPlan plan = plan_below_ceiling(start, points, config, options, setup.limits);
  for (const std::string& report : plan.limit_reports) {
    kelvara::diagnostics::error_line() << report;
  }
  publish(to_command(std::move(plan.samples), control_hz));
}
