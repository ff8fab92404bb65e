#include <iostream>
#include <stdexcept>

#include "controller/arm_controller_impl.hpp"
#include "controller/finite.hpp"
#include "controller/waypoint_planner.hpp"

using kelvara::controller::JointArray;
using kelvara::controller::kJointCount;

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

}  // namespace

void ArmController::move_joint_waypoints(const std::vector<std::vector<double>>& waypoints,
                                         double time_sec, double speed_percent, double control_hz) {
  impl().publish_joint_waypoint_trajectory_command(waypoints, time_sec, speed_percent, control_hz);
}

void ArmController::Impl::publish_joint_waypoint_trajectory_command(
    const std::vector<std::vector<double>>& waypoints, double time_sec, double speed_percent,
    double control_hz) {
  check_arguments(waypoints, time_sec, speed_percent, control_hz);
  kelvara::controller::WaypointOptions options;
  options.control_hz = control_hz;
  if (speed_percent > 0.0) {
    options.speed = speed_percent;
  } else if (time_sec > 0.0) {
    options.time_s = time_sec;
  } else {
    options.speed = joint_trajectory_config.default_speed_percent;
  }

  std::vector<JointArray> points;
  points.reserve(waypoints.size());
  for (const std::vector<double>& waypoint : waypoints) {
    if (waypoint.size() != kJointCount) {
      throw std::invalid_argument("each waypoint must have exactly 6 joint values");
    }
    if (!kelvara::controller::all_finite(waypoint)) {
      throw std::invalid_argument("waypoints must be finite");
    }
    JointArray& point = points.emplace_back();
    for (std::size_t j = 0; j < kJointCount; ++j) {
      point[j] = limits.joints.clamp_joint(j, waypoint[j]);
    }
  }
  JointArray start{};
  if (!try_get_latest_joint_state(start)) {
    throw std::runtime_error("cannot plan waypoint trajectory before joint state is available");
  }
  kelvara::controller::WaypointPlan plan =
      kelvara::controller::plan_waypoints(start, points, joint_trajectory_config, options);
  for (const std::string& report : plan.limit_reports) {
    std::cerr << report + "\n";
  }
  const JointArray end = plan.samples.back().q;
  auto samples = std::make_shared<const std::vector<kelvara::controller::WaypointTrajectorySample>>(
      std::move(plan.samples));

  const std::lock_guard<std::mutex> lock(command_mutex);
  command.begin_command(kelvara::controller::kWaypointTrajectory);
  command.waypoints = std::move(samples);
  command.waypoint_dt_s = 1.0 / control_hz;
  command.target_q = end;
  command.target_dq = {};
}
