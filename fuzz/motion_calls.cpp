#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

#include "kelvara/arm_controller.hpp"

#include "description/arm_facts.hpp"
#include "description/finite.hpp"
#include "fuzz/calls.hpp"
#include "motion/command.hpp"
#include "motion/waypoint_planner.hpp"

namespace fuzz {
namespace {

using namespace kelvara::description;
using namespace kelvara::motion;
using kelvara::JointArray;
using kelvara::kJointCount;

constexpr double kMaxSamples = 20'000.0;  // more would only cost time
constexpr double kSmallest = 1e-300;      // smaller numbers lose digits

/// The arm's own limits, now and then without those of some joints.
JointLimits take_joint_limits(Input& input) {
  JointLimits limits;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    limits.urdf_lower[j] = model().joint_lower()[j];
    limits.urdf_upper[j] = model().joint_upper()[j];
    limits.urdf_has_limit[j] = model().joint_has_limits()[j];
  }
  if (input.flip()) {
    limits.urdf_has_limit = input.take<std::uint8_t>();
  }
  return limits;
}

/// As the controller passes it on: finite, clamped to the limits.
JointArray take_target(Input& input, const JointLimits& limits) {
  JointArray target =
      input.flip() ? input.numbers<kJointCount>() : input.everyday_numbers<kJointCount>();
  for (std::size_t j = 0; j < kJointCount; ++j) {
    target[j] = std::isfinite(target[j]) && limits.urdf_has_limit[j]
                    ? limits.clamp_to_urdf_joint_limit(j, target[j])
                    : std::fmod(std::isfinite(target[j]) ? target[j] : 0.0, 1e6);
  }
  return target;
}

// ---- Set-points -----------------------------------------------------------

/// @param starts Where the motion may have started.
void check_setpoint(const SetPoint& point, const SetPointLimits& limits,
                    const std::array<JointArray, 4>& starts) {
  for (const JointArray& values :
       {point.q, point.dq, point.velocity_limit, point.model_q, point.model_dq, point.model_ddq}) {
    require(all_finite(values), "a set-point is finite");
  }
  for (std::size_t j = 0; j < kJointCount; ++j) {
    // A motion that starts beyond a limit comes back; without one the arm holds its position.
    double lower = limits.joints.urdf_lower[j];
    double upper = limits.joints.urdf_upper[j];
    for (const JointArray& start : starts) {
      lower = std::min(lower, start[j]);
      upper = std::max(upper, start[j]);
    }
    require(point.torque_only || !limits.joints.urdf_has_limit[j] ||
                (point.q[j] >= lower && point.q[j] <= upper),
            "a set-point keeps the joint limits, widened to its start");
    require(point.velocity_limit[j] >= 0.0 && point.velocity_limit[j] <= limits.velocity[j],
            "a set-point keeps the velocity limits");
  }
}

/// A command of any kind that began at any instant.
Command take_command(Input& input, const JointLimits& joints, const WaypointSamples& samples,
                     double dt_s, JointArray& start) {
  const unsigned kind = samples && input.flip() ? WaypointMove::command_type : input.choose(6);
  const JointArray target = take_target(input, joints);
  const JointArray rates = take_target(input, {});
  start = input.everyday_numbers<kJointCount>();
  const double duration_s = input.number();
  const std::array<Command, 6> kinds{NoCommand{},
                                     JointTarget{target, rates},
                                     TimedMove{target, duration_s},
                                     WaypointMove{target, samples, dt_s},
                                     Float{},
                                     FloatKdl{}};
  Command command = kinds[kind];
  begin(command, {take_time(input), start});
  return command;
}

/// Cycles of several commands one after another, which share the reference.
void play(Input& input, const WaypointSamples& samples = nullptr, double dt_s = 0.0025) {
  SetPointLimits limits{take_joint_limits(input), column(&JointFacts::velocity_limit), {}};
  for (double& acceleration : limits.acceleration) {
    const double value = input.number();
    acceleration = value >= 0.0 ? value : 15.0;  // the configuration rejects others
  }
  MitReference reference;
  for (int cycle = 0; cycle < 8 && !input.empty(); ++cycle) {
    JointArray start{};
    const Command command = take_command(input, limits.joints, samples, dt_s, start);
    const JointArray first = samples && !samples->empty() ? samples->front().q : start;
    const Approach approach = input.flip() ? Approach::kReference : Approach::kMotor;
    const JointArray measured = input.everyday_numbers<kJointCount>();
    for (TimePoint now = take_time(input); now < TimePoint::max() && input.flip();
         now = take_time(input)) {
      const SetPoint point = evaluate(command, {now, measured, reference}, limits, approach);
      check_setpoint(point, limits, {start, first, measured, reference.mit_ref_q});
      reference = point.reference;
    }
  }
}

// ---- Waypoints ------------------------------------------------------------

/// An upper bound of a plan's samples, computed without the planner.
double bound_samples(const std::vector<JointArray>& points, const JointTrajectoryConfig& limits,
                     const WaypointOptions& options) {
  double way = 0.0;
  for (std::size_t i = 1; i < points.size(); ++i) {
    for (std::size_t j = 0; j < kJointCount; ++j) {
      way += std::abs(points[i][j] - points[i - 1][j]);
    }
  }
  const auto at_least = [way](double limit) { return limit > 0.0 ? way / limit : 0.0; };
  double time = 0.0;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    time += at_least(limits.max_vel_limits[j] * options.speed) +
            std::sqrt(at_least(limits.max_acc_limits[j])) +
            std::cbrt(at_least(limits.max_jerk_limits[j]));
  }
  return 20.0 * time * options.control_hz * static_cast<double>(points.size());
}

struct WaypointRequest {
  std::vector<JointArray> points;
  JointTrajectoryConfig limits;
  WaypointOptions options;
};

/// No value for what the controller rejects before the planner, or what would only cost time.
std::optional<WaypointRequest> take_request(Input& input) {
  const JointLimits joints = take_joint_limits(input);
  WaypointRequest request;
  request.points = {input.everyday_numbers<kJointCount>()};
  for (unsigned left = 1 + input.choose(6); left > 0; --left) {
    request.points.push_back(take_target(input, joints));
  }
  request.limits = {input.numbers<kJointCount>(), input.numbers<kJointCount>(),
                    input.numbers<kJointCount>()};
  WaypointOptions& options = request.options;
  options.control_hz = input.flip() ? 400.0 : input.number();
  options.time_s = input.flip() ? input.number() : 0.0;
  options.speed = std::abs(input.number());
  if (options.control_hz <= 0.0 || options.time_s < 0.0 || !(options.speed > 0.0) ||
      options.speed > 1.0) {
    return std::nullopt;
  }
  const double asked = options.time_s * options.control_hz;
  if (!(bound_samples(request.points, request.limits, options) < kMaxSamples) ||
      (asked > kMaxSamples && asked < 1e15)) {
    return std::nullopt;
  }
  return request;
}

void check_limits(const WaypointTrajectorySample& sample, const WaypointRequest& request) {
  for (std::size_t j = 0; j < kJointCount; ++j) {
    const double max_velocity = request.options.speed * request.limits.max_vel_limits[j];
    require(!(std::abs(sample.dq[j]) > 1.01 * max_velocity) &&
                !(std::abs(sample.ddq[j]) > 1.01 * request.limits.max_acc_limits[j]),
            "a plan keeps the limits");
  }
}

void check_plan(const WaypointPlan& plan, const WaypointRequest& request) {
  for (const WaypointTrajectorySample& sample : plan.samples) {
    require(all_finite(sample.q) && all_finite(sample.dq) && all_finite(sample.ddq),
            "a plan is finite");
    if (plan.samples.size() > 1 && request.options.time_s == 0.0) {
      check_limits(sample, request);
    }
  }
  const std::vector<JointArray>& points = request.points;
  require(plan.samples.front().q == points.front(), "a plan begins at the start");
  for (std::size_t j = 0; j < kJointCount; ++j) {
    require(std::abs(plan.samples.back().q[j] - points.back()[j]) <=
                1e-8 + 1e-12 * std::abs(points.back()[j]) * static_cast<double>(points.size()),
            "a plan ends at the last point");
  }
}

// ---- Sampled moves --------------------------------------------------------

std::vector<double> take_joints(Input& input) {
  std::vector<double> q(input.choose(8));
  std::generate(q.begin(), q.end(), [&] { return input.number(); });
  return q;
}

/// The positions and rates of one joint that moves from `q0` to `q1`.
void check_joint(const std::vector<std::vector<double>>& joint, double q0, double q1) {
  const double slack = 1e-6 * std::abs(q1 - q0) + 1e-12 * (std::abs(q0) + std::abs(q1)) + kSmallest;
  for (const double q : joint[0]) {
    require(q >= std::min(q0, q1) - slack && q <= std::max(q0, q1) + slack,
            "a move lies between its ends");
  }
  require(all_finite(joint[1]) && all_finite(joint[2]), "a move's rates are finite");
}

}  // namespace

void run_setpoints(Input& input) { play(input); }

void plan_and_play(Input& input) {
  const std::optional<WaypointRequest> request = take_request(input);
  if (!request) {
    return;
  }
  const auto& [points, limits, options] = *request;
  WaypointPlan plan;
  try {
    plan = plan_waypoints(points.front(), {points.begin() + 1, points.end()}, limits, options);
  } catch (const std::runtime_error&) {
    return;
  } catch (const std::length_error&) {
    return;
  }
  check_plan(plan, *request);
  play(input, std::make_shared<const std::vector<WaypointTrajectorySample>>(plan.samples),
       1.0 / options.control_hz);
}

void sample_septic(Input& input) {
  const std::vector<double> start = take_joints(input);
  const std::vector<double> end = input.flip() ? take_joints(input) : start;
  const double tf = input.number();
  const double freq = input.number();
  if (tf / (1.0 / freq) > kMaxSamples) {
    return;
  }
  SeptupleTrajectory move;
  try {
    move = ArmController::generate_septuple_trajectory(start, end, tf, freq);
  } catch (const std::invalid_argument&) {
    return;
  } catch (const std::runtime_error&) {
    return;
  } catch (const std::length_error&) {
    return;
  }
  require(all_finite(move.time), "the times are finite");
  for (std::size_t j = 0; j < kJointCount; ++j) {
    const double q0 = start[start.size() == 1 ? 0 : j];
    const double q1 = end[end.size() == 1 ? 0 : j];
    if (!(std::abs(q0) < 1e6) || !(std::abs(q1) < 1e6)) {
      continue;
    }
    check_joint(move.joints[j], q0, q1);
  }
}

}  // namespace fuzz
