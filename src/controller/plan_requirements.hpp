#pragma once

#include "controller/controller_setup.hpp"
#include "kelvara/motion/plan.hpp"

class RobotKinematics;

/// What a plan must keep to be executed. Each function throws MotionError with the joint and the
/// time on the plan.
namespace kelvara::controller {

/// @throws MotionError `kJointLimit` for positions outside the joint limits, `kLimitExceeded` for
///         velocities above the ceiling and for samples that do not belong together.
void require_limits(const Plan& plan, const motion::SetPointLimits& limits);

/// @throws MotionError `kLimitExceeded` where the feed-forward torque would be clipped, or would
///         step by more than 2 N·m between two samples.
void require_torque(const Plan& plan, const ControllerSetup& setup,
                    const RobotKinematics& kinematics);

/// Returns whether the command stands beside the plan's start, near enough to be led there.
/// @throws MotionError `kStartMismatch` for a plan that does not start at rest where the command
///         stands, `kLimitExceeded` for one that does not end at rest.
bool require_rest(const Plan& plan, const JointArray& standing);

}  // namespace kelvara::controller
