#pragma once

#include <bitset>

#include "description/joint_array.hpp"

namespace kelvara::description {

/// min(x, hi), then the larger of that and lo; the lower bound wins when lo > hi, NaN gives lo.
inline double clamp(double x, double lo, double hi) {
  const double m = hi < x ? hi : x;
  return m > lo ? m : lo;
}

/// The joints' position limits.
struct JointLimits {
  JointArray urdf_lower{};  // rad
  JointArray urdf_upper{};  // rad
  std::bitset<kJointCount> urdf_has_limit;

  /// The angle inside the joint's limits; unchanged for a joint without limits, and for NaN.
  double clamp_to_urdf_joint_limit(std::size_t joint, double q) const {
    if (!urdf_has_limit[joint]) {
      return q;
    }
    if (urdf_lower[joint] > q) {
      return urdf_lower[joint];
    }
    return urdf_upper[joint] < q ? urdf_upper[joint] : q;
  }

  /// The same, with the limits widened to contain `start`: a motion that starts outside the limits
  /// comes back without a jump.
  double clamp_from(std::size_t joint, double start, double q) const {
    if (!urdf_has_limit[joint]) {
      return q;
    }
    const double lower = start < urdf_lower[joint] ? start : urdf_lower[joint];
    const double upper = start > urdf_upper[joint] ? start : urdf_upper[joint];
    return lower > q ? lower : (upper < q ? upper : q);
  }
};

}  // namespace kelvara::description
