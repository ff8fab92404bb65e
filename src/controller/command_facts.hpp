#pragma once

#include <memory>
#include <optional>

#include "motion/command.hpp"

/// What the slot asks of a command, whatever its kind.
namespace kelvara::controller {

/// What of a command is freed on the threads that publish; null for a command without.
std::shared_ptr<const void> plan_of(const motion::Command& command);
/// Whether a snapshot may hold what the command holds: the first one begins it.
bool has_begun(const motion::Command& command);
/// Ends what waits for a command. A plan that was braked ends as the brake has it, and a stop that
/// has brought the arm to rest is done.
void end(const motion::Command& command, MotionOutcome outcome);
/// Where a motion that the application has begun ends, rad; nothing for other kinds.
std::optional<JointArray> target_of(const motion::Command& command);

}  // namespace kelvara::controller
