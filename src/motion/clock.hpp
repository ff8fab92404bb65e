#pragma once

#include <chrono>

namespace kelvara::motion {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

}  // namespace kelvara::motion
