#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <vector>

#include <Eigen/Geometry>

#include "kelvara/kinematics/transforms.hpp"
#include "kelvara/motion/planner.hpp"

#include "description/finite.hpp"
#include "fuzz/calls.hpp"

namespace fuzz {
namespace {

using kelvara::JointArray;
using kelvara::kJointCount;
using kelvara::MotionLimits;
using kelvara::MotionPlanner;
using kelvara::PathSegment;
using kelvara::Plan;
using kelvara::PlanOptions;
using kelvara::PlanSample;
using kelvara::Pose;
using kelvara::description::all_finite;

constexpr double kRounding = 1.0 + 1e-9;
constexpr double kLongestS = 4.0;        // longer plans would only cost time
constexpr double kPathTolerance = 1e-4;  // m and rad

const MotionLimits& shipped_limits() {
  static const MotionLimits limits =
      MotionLimits::from_settings(model().description_files().settings_path);
  return limits;
}

// ---- Poses ----------------------------------------------------------------

Pose take_pose(Input& input, const Pose& near) {
  Pose pose = near;
  const unsigned kind = input.choose(8);
  for (std::size_t i = 0; i < 3; ++i) {
    pose.position[i] = kind == 0 ? input.number() : pose.position[i] + input.everyday_number() / 32;
    pose.rpy[i] = kind < 2 ? input.number() : pose.rpy[i] + input.everyday_number() / 8;
  }
  return pose;
}

Eigen::Isometry3d transform_of(const Pose& pose) {
  return Eigen::Isometry3d(
      t_from_xyzrpy(Eigen::Vector3d(pose.position.data()), Eigen::Vector3d(pose.rpy.data())));
}

/// Metres and radians, the larger of the two.
double difference(const Pose& one, const Pose& other) {
  const Eigen::Isometry3d a = transform_of(one);
  const Eigen::Isometry3d b = transform_of(other);
  const Eigen::Quaterniond turn(Eigen::Matrix3d(a.linear().transpose() * b.linear()));
  return std::max((a.translation() - b.translation()).norm(),
                  2.0 * std::atan2(turn.vec().norm(), std::abs(turn.w())));
}

double distance(const JointArray& one, const JointArray& other) {
  double sum = 0.0;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    sum += (one[j] - other[j]) * (one[j] - other[j]);
  }
  return std::sqrt(sum);
}

void check_solution(const JointArray& q, const Pose& pose) {
  for (std::size_t j = 0; j < kJointCount; ++j) {
    require(q[j] >= model().joint_lower()[j] && q[j] <= model().joint_upper()[j],
            "a solution keeps the joint limits");
  }
  require(difference(model().pose(q), pose) <= 1e-7, "a solution reaches the pose");
}

// ---- Plans ----------------------------------------------------------------

/// A fraction of the shipped limits, now and then with any number among them.
MotionLimits take_limits(Input& input) {
  MotionLimits limits = shipped_limits().scaled(0.7 + 0.1 * input.choose(4));
  if (input.choose(8) == 0) {
    const std::size_t joint = input.choose(kJointCount);
    for (double* value : {&limits.velocity[joint], &limits.acceleration[joint], &limits.jerk[joint],
                          &limits.tool_speed, &limits.rotor_inertia[joint]}) {
      const double number = input.number();
      *value = number > 0.0 && number < *value ? *value : number;  // slower plans are too long
    }
  }
  return limits;
}

std::optional<PlanOptions> take_options(Input& input) {
  PlanOptions options;
  options.duration_s = input.choose(4) == 0 ? input.number() : 0.0;
  const bool is_long = options.duration_s > kLongestS && options.duration_s < 1e6;
  return is_long ? std::nullopt : std::optional(options);
}

PlanSample take_state(Input& input) {
  PlanSample state{take_configuration(input), {}, {}};
  if (input.flip()) {
    state.ddq = input.everyday_numbers<kJointCount>();
    for (double& velocity : state.dq) {
      velocity = 0.5 * input.everyday_number();
    }
  }
  if (input.choose(16) == 0) {
    const double number = input.number();
    const bool is_far = std::abs(number) > 8.0 && std::abs(number) < 1e8;
    state.q[input.choose(kJointCount)] = is_far ? 0.0 : number;
  }
  return state;
}

bool is_at_rest(const PlanSample& state) {
  return state.dq == JointArray{} && state.ddq == JointArray{};
}

void check_rates(const Plan& plan, const MotionLimits& limits) {
  for (std::size_t k = 0; k < plan.samples().size(); ++k) {
    const PlanSample& sample = plan.samples()[k];
    for (std::size_t j = 0; j < kJointCount; ++j) {
      require(std::abs(sample.dq[j]) <= limits.velocity[j] * kRounding + 1e-12 &&
                  std::abs(sample.ddq[j]) <= limits.acceleration[j] * kRounding + 1e-12,
              "a plan from rest keeps the limits");
    }
  }
}

/// What holds for every plan.
void check_plan(const Plan& plan, const PlanSample& start, const MotionPlanner& planner,
                Input& input) {
  require(plan.samples().front().q == start.q, "a plan begins at its start");
  require(plan.samples().back().dq == JointArray{}, "a plan ends at rest");
  require(all_finite(plan.report().peak_torque) && std::isfinite(plan.report().tool_path_m) &&
              std::isfinite(plan.report().peak_tool_speed),
          "a report is finite");
  if (is_at_rest(start)) {
    check_rates(plan, planner.limits());
  }
  const PlanSample between = plan.at(input.number());
  require(all_finite(between.q) && all_finite(between.dq) && all_finite(between.ddq),
          "a plan is finite at any time");
}

/// The plan that `make` returns, or nothing for one clear error.
template <typename Make>
std::optional<Plan> plan_or_error(const Make& make) {
  try {
    return make();
  } catch (const kelvara::MotionError&) {
  } catch (const std::invalid_argument&) {
  } catch (const std::length_error&) {
  }
  return std::nullopt;
}

std::optional<MotionPlanner> take_planner(Input& input) {
  try {
    return MotionPlanner(model(), take_limits(input));
  } catch (const std::invalid_argument&) {
    return std::nullopt;
  }
}

/// Distance of a point from the straight line between two others.
double distance_to_line(const Pose& pose, const Pose& from, const Pose& to) {
  const Eigen::Vector3d a(from.position.data()), b(to.position.data()), p(pose.position.data());
  const double length = (b - a).squaredNorm();
  const double part = length > 0.0 ? std::clamp((p - a).dot(b - a) / length, 0.0, 1.0) : 0.0;
  return (p - a - part * (b - a)).norm();
}

void check_line(const Plan& plan, const JointArray& start, const Pose& end) {
  const Pose from = model().pose(start);
  for (const PlanSample& sample : plan.samples()) {
    require(distance_to_line(model().pose(sample.q), from, end) <= kPathTolerance,
            "the tool stays on its line");
  }
}

std::vector<PathSegment> take_path(Input& input, Pose at) {
  std::vector<PathSegment> segments;
  for (unsigned left = 1 + input.choose(3); left > 0; --left) {
    const double blend = input.flip() ? input.number() : 0.02;
    const unsigned kind = input.choose(3);
    const Pose via = take_pose(input, at);
    at = take_pose(input, via);
    segments.push_back(kind == 0   ? PathSegment::joint(take_configuration(input), blend)
                       : kind == 1 ? PathSegment::linear(at, blend)
                                   : PathSegment::arc(via, at, blend));
  }
  return segments;
}

}  // namespace

JointArray take_configuration(Input& input) {
  JointArray q;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    const double part = input.take<std::uint16_t>() / 65535.0;
    q[j] = model().joint_lower()[j] + part * (model().joint_upper()[j] - model().joint_lower()[j]);
    q[j] = std::min(q[j], model().joint_upper()[j]);
  }
  return q;
}

void plan_joints(Input& input) {
  const auto planner = take_planner(input);
  const PlanSample start = take_state(input);
  const JointArray target = take_configuration(input);
  const auto options = take_options(input);
  if (!planner || !options) {
    return;
  }
  if (const auto plan =
          plan_or_error([&] { return planner->plan_joint(start, target, *options); })) {
    check_plan(*plan, start, *planner, input);
    require(plan->samples().back().q == target, "a plan ends at its target");
  }
  if (const auto stop = plan_or_error([&] { return planner->plan_stop(start); })) {
    check_plan(*stop, start, *planner, input);
  }
  const std::vector<JointArray> points{take_configuration(input), target};
  if (const auto plan =
          plan_or_error([&] { return planner->plan_waypoints(start.q, points, *options); })) {
    check_plan(*plan, {start.q, {}, {}}, *planner, input);
    require(distance(plan->samples().back().q, target) <= 1e-8, "a plan ends at its target");
  }
}

void plan_tool(Input& input) {
  const auto planner = take_planner(input);
  const JointArray start = take_configuration(input);
  const auto options = take_options(input);
  if (!planner || !options) {
    return;
  }
  const Pose via = take_pose(input, model().pose(start));
  const Pose end = take_pose(input, via);
  const unsigned kind = input.choose(3);
  const auto segments = kind == 2 ? take_path(input, via) : std::vector<PathSegment>{};
  const auto plan = plan_or_error([&] {
    return kind == 0   ? planner->plan_linear(start, {end}, *options)
           : kind == 1 ? planner->plan_arc(start, via, end, *options)
                       : planner->plan_path(start, segments, *options);
  });
  if (!plan) {
    return;
  }
  check_plan(*plan, {start, {}, {}}, *planner, input);
  if (kind < 2) {
    require(difference(model().pose(plan->samples().back().q), end) <= kPathTolerance,
            "the tool ends at its pose");
  }
  if (kind == 0) {
    check_line(*plan, start, end);
  }
}

void solve_poses(Input& input) {
  const JointArray near = take_configuration(input);
  const bool is_reachable = input.flip();
  const Pose reachable = model().pose(take_configuration(input));
  const Pose pose = is_reachable ? reachable : take_pose(input, reachable);
  if (!all_finite(pose.position) || !all_finite(pose.rpy)) {
    return;
  }
  double nearest = HUGE_VAL;
  for (const kelvara::PoseSolution& solution : model().pose_solutions(pose)) {
    check_solution(solution.q, pose);
    nearest = std::min(nearest, distance(solution.q, near));
  }
  try {
    const JointArray q = model().solve_pose(pose, near);
    check_solution(q, pose);
    require(distance(q, near) <= nearest + 1e-6, "the nearest solution is returned");
  } catch (const kelvara::MotionError&) {
    require(!is_reachable && nearest == HUGE_VAL, "a pose that can be reached is solved");
  }
}

}  // namespace fuzz
