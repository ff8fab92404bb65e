#pragma once

#include "motion/joint_profile.hpp"

namespace kelvara::motion {

/// Moves one joint towards a goal that moves, by one control period.
///
/// Far from the goal the joint takes the first step of the fastest motion to rest beside it, as
/// seen from the goal; near it, within a few milliradians, a linear law with three equal poles.
/// From a state inside `limits` the next one is inside them, too.
/// @param goal Where the goal is now, inside the limits of velocity and acceleration. Far away its
///             motion counts for less.
/// @param limits Finite and positive.
/// @param catch_up How much faster than the goal the joint may move to reach it, rad/s.
JointState track(const JointState& goal, const JointState& from, const RateLimits& limits,
                 double catch_up);

}  // namespace kelvara::motion
