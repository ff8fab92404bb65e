#pragma once

#include "motion/joint_profile.hpp"

namespace kelvara::motion {

/// The fastest pole of the linear law near a goal, 1/s.
/// @param jerk The limit, rad/s³.
double fastest_pole(double jerk);

/// Moves one joint towards a goal that moves, by one control period.
///
/// Far from the goal the joint takes the first step of the fastest motion to rest beside it, as
/// seen from the goal; near it, where its jerk suffices, a linear law with three equal poles.
/// From a state inside `limits` the next one is inside them, too.
/// @param goal Where the goal is now, inside the limits of velocity and acceleration. Far away its
///             motion counts for less.
/// @param limits Finite and positive.
/// @param pole Of the linear law, 1/s: up to the fastest; the slower, the smoother a noisy goal's
///             motion.
/// @param catch_up How much faster than the goal the joint may move to reach it, rad/s.
JointState track(const JointState& goal, const JointState& from, const RateLimits& limits,
                 double pole, double catch_up);

}  // namespace kelvara::motion
