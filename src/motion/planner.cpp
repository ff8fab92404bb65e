#include "kelvara/motion/planner.hpp"

#include "motion/plan_checks.hpp"

namespace kelvara {

MotionPlanner::MotionPlanner(const RobotKinematics& model, const MotionLimits& limits)
    : model_(model), limits_(limits) {
  motion::joint_limits_of(model);
  motion::check_limits(limits);
}

}  // namespace kelvara
