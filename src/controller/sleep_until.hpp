#pragma once

#include "controller/command_slot.hpp"

namespace kelvara::controller {

/// Sleeps until `wake`, also when signals interrupt; returns at once when it has passed.
void sleep_until(TimePoint wake);

}  // namespace kelvara::controller
