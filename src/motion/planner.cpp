#include "kelvara/motion/planner.hpp"

#include "motion/plan_checks.hpp"
#include "motion/plan_report.hpp"
#include "motion/synchronised_profiles.hpp"

namespace kelvara {

MotionPlanner::MotionPlanner(const RobotKinematics& model, const MotionLimits& limits)
    : model_(model), limits_(limits) {
  motion::joint_limits_of(model);
  motion::check_limits(limits);
}

Plan MotionPlanner::plan_joint(const JointArray& start, const JointArray& target,
                               const PlanOptions& options) const {
  return plan_joint(PlanSample{start, {}, {}}, target, options);
}

Plan MotionPlanner::plan_joint(const PlanSample& start, const JointArray& target,
                               const PlanOptions& options) const {
  motion::check_start(start);
  motion::check_options(options);
  motion::check_target(target, motion::joint_limits_of(model_));
  const auto profiles = motion::SynchronisedProfiles::move(start, target, limits_, options);
  return motion::make_plan(profiles.sample(), profiles.duration_s(), model_, limits_);
}

Plan MotionPlanner::plan_stop(const PlanSample& start) const {
  motion::check_start(start);
  const auto profiles = motion::SynchronisedProfiles::stop(start, limits_);
  return motion::make_plan(profiles.sample(), profiles.duration_s(), model_, limits_);
}

}  // namespace kelvara
