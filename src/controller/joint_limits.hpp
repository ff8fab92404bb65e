#pragma once

#include <bitset>

#include "controller/arm_facts.hpp"

namespace kelvara::controller {

/// min(x, hi), then the larger of that and lo; the lower bound wins when lo > hi, NaN gives lo.
inline double clamp(double x, double lo, double hi) {
  const double m = hi < x ? hi : x;
  return m > lo ? m : lo;
}

/// The joints' position limits.
struct JointLimits {
  JointArray lower{};  // rad
  JointArray upper{};  // rad
  std::bitset<kJointCount> has_limit;

  /// The angle inside the joint's limits; unchanged for a joint without limits, and for NaN.
  double clamp_joint(std::size_t joint, double q) const {
    if (!has_limit[joint]) {
      return q;
    }
    if (lower[joint] > q) {
      return lower[joint];
    }
    return upper[joint] < q ? upper[joint] : q;
  }
};

}  // namespace kelvara::controller
