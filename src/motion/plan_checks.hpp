#pragma once

#include "kelvara/kinematics/kinematics.hpp"
#include "kelvara/motion/planner.hpp"

#include "description/joint_limits.hpp"

namespace kelvara::motion {

/// The position limits of a chain of six moving joints.
/// @throws std::invalid_argument for another number of moving joints.
description::JointLimits joint_limits_of(const RobotKinematics& model);

/// @throws std::invalid_argument for limits that are not finite and positive; torques, which are
///         only reported, may be zero.
void check_limits(const MotionLimits& limits);

/// @throws std::invalid_argument for values that are not finite.
void check_start(const JointArray& start);
void check_start(const PlanSample& start);
/// @throws std::invalid_argument for a duration that is negative, NaN or infinite.
void check_options(const PlanOptions& options);
/// @throws std::invalid_argument for a course without a point.
void check_course(std::size_t points);

/// @throws std::invalid_argument for angles that are not finite, MotionError `kJointLimit` for
///         angles outside the limits.
void check_target(const JointArray& target, const description::JointLimits& limits);

/// @throws MotionError `kDurationTooShort` when a requested duration lies below the shortest by
///         more than rounding.
void check_duration(const PlanOptions& options, double shortest_s);

}  // namespace kelvara::motion
