#pragma once

#include "motion/joint_profile.hpp"

namespace kelvara::motion {

/// Brings a joint inside its limits of acceleration and velocity as fast as its jerk allows; an
/// empty profile when it is inside. Inside means that it also stays there: the velocity that it
/// arrives at when its acceleration ends is inside, too.
JointProfile enter_limits(const JointState& start, const RateLimits& limits);

}  // namespace kelvara::motion
