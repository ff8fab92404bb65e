#pragma once

#include "motion/setpoint.hpp"

namespace kelvara::motion {

/// Lets the arm float: commands only the gravity torque at the measured positions.
template <int kCommandType>
struct Floating {
  static constexpr int command_type = kCommandType;

  void begin(const Instant& /*instant*/) {}
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
