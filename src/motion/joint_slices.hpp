#pragma once

#include <cstddef>

#include "kelvara/motion/planner.hpp"

#include "motion/joint_profile.hpp"

/// One joint's values of what holds six.
namespace kelvara::motion {

inline JointState joint_state(const PlanSample& sample, std::size_t joint) {
  return {sample.q[joint], sample.dq[joint], sample.ddq[joint]};
}

inline void set_joint_state(PlanSample& sample, std::size_t joint, const JointState& state) {
  sample.q[joint] = state.q;
  sample.dq[joint] = state.dq;
  sample.ddq[joint] = state.ddq;
}

inline RateLimits rate_limits(const MotionLimits& limits, std::size_t joint) {
  return {limits.velocity[joint], limits.acceleration[joint], limits.jerk[joint]};
}

}  // namespace kelvara::motion
