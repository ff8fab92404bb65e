#pragma once

#include <cmath>
#include <stdexcept>

#include "description/joint_array.hpp"

namespace kelvara::description {

/// Converts between the motor side and the joint side: a motor that is mounted the other way round
/// has the sign -1. Angles, velocities and torques convert alike.
class MotorSigns {
 public:
  /// Every motor mounted the same way round as its joint.
  MotorSigns() { motor_signs_.fill(1.0); }
  /// @throws std::invalid_argument "motor_signs must contain only +1 or -1".
  explicit MotorSigns(const JointArray& motor_signs) : motor_signs_(motor_signs) {
    constexpr double kTolerance = 1e-9;
    for (const double sign : motor_signs_) {
      if (!(std::abs(std::abs(sign) - 1.0) <= kTolerance)) {
        throw std::invalid_argument("motor_signs must contain only +1 or -1");
      }
    }
  }

  double to_joint(std::size_t joint, double motor_value) const {
    return motor_value * motor_signs_[joint];
  }
  double to_motor(std::size_t joint, double joint_value) const {
    return joint_value * motor_signs_[joint];
  }

 private:
  JointArray motor_signs_{};
};

}  // namespace kelvara::description
