#pragma once

#include "motion/clock.hpp"

namespace kelvara::controller {

/// Sleeps until `wake`, also when signals interrupt; returns at once when it has passed.
void sleep_until(motion::TimePoint wake);

}  // namespace kelvara::controller
