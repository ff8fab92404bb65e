#pragma once

#include <variant>

#include "motion/brake.hpp"
#include "motion/floating.hpp"
#include "motion/follow.hpp"
#include "motion/joint_target.hpp"
#include "motion/planned_move.hpp"
#include "motion/setpoint.hpp"
#include "motion/stop_move.hpp"
#include "motion/timed_move.hpp"
#include "motion/waypoint_move.hpp"

namespace kelvara::motion {

/// Before the first command: holds the measured positions.
struct NoCommand {
  static constexpr int command_type = 0;

  void begin(const Instant& /*instant*/) {}
  SetPoint evaluate(const Instant& instant, const SetPointLimits& /*limits*/,
                    Approach /*approach*/) const {
    return hold(instant.measured);
  }
};

/// The arm's command. A kind is a struct with its data, its number and two functions:
/// `begin` takes the start of a move in its first cycle and does nothing in later ones, `evaluate`
/// computes the set-point of one instant. A kind that lacks one of them does not compile.
using Command = std::variant<NoCommand, JointTarget, TimedMove, WaypointMove, Float, FloatKdl,
                             Brake, PlannedMove, StopMove, Follow>;

/// The number of the command's kind.
inline int command_type(const Command& command) {
  return std::visit([](const auto& kind) { return kind.command_type; }, command);
}

inline void begin(Command& command, const Instant& instant) {
  std::visit([&](auto& kind) { kind.begin(instant); }, command);
}

/// Evaluates a command that has begun. Pure.
inline SetPoint evaluate(const Command& command, const Instant& instant,
                         const SetPointLimits& limits, Approach approach) {
  return std::visit([&](const auto& kind) { return kind.evaluate(instant, limits, approach); },
                    command);
}

}  // namespace kelvara::motion
