#include "kelvara/motion/planner.hpp"

#include <algorithm>
#include <cmath>

#include "motion/plan_checks.hpp"
#include "motion/plan_report.hpp"
#include "motion/synchronised_profiles.hpp"
#include "motion/waypoint_profile.hpp"

namespace kelvara {
namespace {

constexpr double kRepeatDistance = 1e-9;  // rad; closer points are one

bool is_repeat(const JointArray& a, const JointArray& b) {
  return std::equal(a.begin(), a.end(), b.begin(),
                    [](double x, double y) { return std::abs(x - y) <= kRepeatDistance; });
}

/// The start and the points after it, without repeats; of these the last one counts.
std::vector<JointArray> drop_repeats(const JointArray& start,
                                     const std::vector<JointArray>& points) {
  std::vector<JointArray> course{start};
  for (const JointArray& point : points) {
    if (course.size() > 1 && is_repeat(course.back(), point)) {
      course.pop_back();
    }
    course.push_back(point);
  }
  return course;
}

}  // namespace

MotionPlanner::MotionPlanner(const RobotKinematics& model, const MotionLimits& limits)
    : model_(model), limits_(limits) {
  motion::joint_limits_of(model);
  motion::check_limits(limits);
}

Plan MotionPlanner::plan_joint(const JointArray& start, const JointArray& target,
                               const PlanOptions& options) const {
  return plan_joint_from({start, {}, {}}, target, options);
}

Plan MotionPlanner::plan_joint_from(const PlanSample& start, const JointArray& target,
                                    const PlanOptions& options) const {
  motion::check_start(start);
  motion::check_options(options);
  motion::check_target(target, motion::joint_limits_of(model_));
  const auto profiles = motion::SynchronisedProfiles::move(start, target, limits_, options);
  return motion::make_plan(profiles.sample(), profiles.duration_s(), model_, limits_);
}

Plan MotionPlanner::plan_waypoints(const JointArray& start, const std::vector<JointArray>& points,
                                   const PlanOptions& options) const {
  const description::JointLimits joints = motion::joint_limits_of(model_);
  motion::check_start(start);
  motion::check_options(options);
  motion::check_course(points.size());
  for (const JointArray& point : points) {
    motion::check_target(point, joints);
  }
  std::vector<JointArray> course = drop_repeats(start, points);
  if (course.size() > 2 && is_repeat(course[0], course[1])) {
    course.erase(course.begin() + 1);
  }
  if (course.size() <= 2) {
    return plan_joint(start, course.back(), options);
  }
  const motion::WaypointProfile profile(course, joints, limits_, options);
  return motion::make_plan(profile.sample(), profile.duration_s(), model_, limits_);
}

Plan MotionPlanner::plan_stop(const PlanSample& start) const {
  motion::check_start(start);
  const auto profiles = motion::SynchronisedProfiles::stop(start, limits_);
  return motion::make_plan(profiles.sample(), profiles.duration_s(), model_, limits_);
}

}  // namespace kelvara
