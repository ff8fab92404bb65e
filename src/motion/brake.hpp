#pragma once

#include <cmath>

#include "motion/joint_target.hpp"

namespace kelvara::motion {

/// Where the joints come to rest when they brake now, each at its acceleration limit.
/// @param q,dq         Commanded angles (rad) and velocities (rad/s).
/// @param acceleration rad/s².
inline JointTarget brake(const JointArray& q, const JointArray& dq,
                         const JointArray& acceleration) {
  JointTarget target{.target_q = q, .is_hold = true};
  for (std::size_t i = 0; i < kJointCount; ++i) {
    if (acceleration[i] > 0.0) {
      target.target_q[i] += dq[i] * std::abs(dq[i]) / (2.0 * acceleration[i]);
    }
  }
  return target;
}

}  // namespace kelvara::motion
