#pragma once

#include <cstddef>
#include <vector>

#include "kelvara/kinematics/kinematics.hpp"
#include "kelvara/motion/planner.hpp"

namespace kelvara::motion {

/// The number of samples of a plan: one per period, and one at the end.
/// @throws std::length_error for more than `kMaxPlanBytes` of them.
std::size_t count_plan_samples(double duration_s);

/// Time of sample `index` of a plan that lasts `duration_s`, s.
double plan_sample_time_s(std::size_t index, double duration_s);

/// Completes samples to a plan with its report. A pure function; any threads at once.
/// @param samples    `count_plan_samples(duration_s)` of them, at `plan_sample_time_s`.
/// @param duration_s Time of the last sample.
/// @param model      A chain of six moving joints.
/// @param limits     What the motion was planned with.
/// @throws std::invalid_argument as the constructor of `Plan`.
Plan make_plan(std::vector<PlanSample> samples, double duration_s, const RobotKinematics& model,
               const MotionLimits& limits);

}  // namespace kelvara::motion
