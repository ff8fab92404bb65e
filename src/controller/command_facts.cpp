#include "controller/command_facts.hpp"

namespace kelvara::controller {

using motion::PlannedMove;

std::shared_ptr<const void> plan_of(const motion::Command& command) {
  if (const auto* const move = std::get_if<motion::WaypointMove>(&command)) {
    return move->waypoints;
  }
  if (const auto* const move = std::get_if<PlannedMove>(&command)) {
    return move->motion;
  }
  if (const auto* const stop = std::get_if<motion::StopMove>(&command)) {
    return stop->status;
  }
  return nullptr;
}

bool has_begun(const motion::Command& command) {
  const auto* const waypoints = std::get_if<motion::WaypointMove>(&command);
  const auto* const planned = std::get_if<PlannedMove>(&command);
  const auto* const stop = std::get_if<motion::StopMove>(&command);
  return (waypoints != nullptr && waypoints->waypoints_started) ||
         (planned != nullptr && planned->started) || (stop != nullptr && stop->started);
}

void end(const motion::Command& command, MotionOutcome outcome) {
  const MotionOutcome of_stop = outcome == MotionOutcome::kStopped ? MotionOutcome::kDone : outcome;
  if (const auto* const move = std::get_if<PlannedMove>(&command)) {
    move->motion->status->end(outcome == MotionOutcome::kStopped ? move->stop_outcome : outcome);
    if (move->stop_status) {
      move->stop_status->end(of_stop);
    }
  } else if (const auto* const stop = std::get_if<motion::StopMove>(&command)) {
    stop->status->end(of_stop);
  }
}

std::optional<JointArray> target_of(const motion::Command& command) {
  if (const auto* const move = std::get_if<motion::TimedMove>(&command)) {
    return move->target_q;
  }
  if (const auto* const move = std::get_if<motion::WaypointMove>(&command)) {
    return move->target_q;
  }
  if (const auto* const target = std::get_if<motion::JointTarget>(&command)) {
    return target->target_q;
  }
  return std::nullopt;
}

}  // namespace kelvara::controller
