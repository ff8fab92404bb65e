#pragma once

#include <variant>

#include "motion/brake.hpp"
#include "motion/floating.hpp"
#include "motion/joint_target.hpp"
#include "motion/setpoint.hpp"
#include "motion/timed_move.hpp"
#include "motion/waypoint_move.hpp"

namespace kelvara::motion {

/// Before the first command: holds the measured positions.
struct NoCommand {
  static constexpr int command_type = 0;

  void begin(const JointArray& /*measured*/, TimePoint /*now*/) {}
  SetPoint evaluate(const Instant& instant, const SetPointLimits& /*limits*/,
                    Approach /*approach*/) const {
    return hold(instant.measured);
  }
};

/// The arm's command. A kind is a struct with its data, its number and two functions:
/// `begin` takes the start of a move in its first cycle and does nothing in later ones, `evaluate`
/// computes the set-point of one instant. A kind that lacks one of them does not compile.
using Command =
    std::variant<NoCommand, JointTarget, TimedMove, WaypointMove, Float, FloatKdl, Brake>;

/// The number of the command's kind, 0 to 5.
inline int command_type(const Command& command) {
  return std::visit([](const auto& kind) { return kind.command_type; }, command);
}

/// @param measured Measured joint angles, rad.
inline void begin(Command& command, const JointArray& measured, TimePoint now) {
  std::visit([&](auto& kind) { kind.begin(measured, now); }, command);
}

/// Evaluates a command that has begun. Pure.
inline SetPoint evaluate(const Command& command, const Instant& instant,
                         const SetPointLimits& limits, Approach approach) {
  return std::visit([&](const auto& kind) { return kind.evaluate(instant, limits, approach); },
                    command);
}

}  // namespace kelvara::motion
