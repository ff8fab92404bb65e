#pragma once

#include "kelvara/motion/plan.hpp"

#include "description/joint_array.hpp"

namespace kelvara::motion {

/// The clock of a plan that is executed: it advances by `rate` periods in each cycle, whenever that
/// comes, so that a late cycle delays the motion and never makes a larger step.
struct PlanClock {
  double time_s = 0.0;     // of the plan
  double rate = 1.0;       // 0 stands still, 1 is the plan's own speed
  double rate_rate = 0.0;  // 1/s
};

/// The limits that a change of speed keeps.
struct SmoothLimits {
  JointArray acceleration{};  // rad/s²
  JointArray jerk{};          // rad/s³
};

/// Advances by one control period and changes the rate towards `target`, as fast as the joints'
/// limits allow along the plan. Pure.
/// @param peak   The plan's highest velocities, rad/s.
/// @param ddq    The acceleration that the cycle before has commanded, rad/s².
/// @param target Rate to reach, 0 to 1.
PlanClock step_clock(const PlanClock& before, const Plan& plan, const SmoothLimits& limits,
                     const JointArray& peak, const JointArray& ddq, double target);

/// The plan's state; just before its start the motion that leads to it.
PlanSample plan_state(const Plan& plan, double time_s);

}  // namespace kelvara::motion
