#pragma once

#include <array>
#include <cstddef>

namespace kelvara {

inline constexpr std::size_t kJointCount = 6;

/// One value for each joint, joint 1 (at the base) first.
using JointArray = std::array<double, kJointCount>;

}  // namespace kelvara
