#pragma once

#include "motion/setpoint.hpp"

namespace kelvara::motion {

/// Makes the arm float: torque alone, as much as carries it where it is.
template <int kCommandType>
struct Floating {
  static constexpr int command_type = kCommandType;

  void begin(const JointArray& /*measured*/, TimePoint /*now*/) {}
  SetPoint evaluate(const Instant& instant, const SetPointLimits& /*limits*/,
                    Approach /*approach*/) const {
    SetPoint point;
    point.model_q = instant.measured;
    point.torque_only = true;
    return point;
  }
};

/// Two numbers for the same command; both take gravity from the chain model.
using Float = Floating<4>;
using FloatKdl = Floating<5>;

}  // namespace kelvara::motion
