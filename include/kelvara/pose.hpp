#pragma once

#include <array>

namespace kelvara {

/// A pose of the tool in the base frame.
struct Pose {
  std::array<double, 3> position{};  // x, y, z, m
  std::array<double, 3> rpy{};       // roll, pitch, yaw, rad: R = Rz(yaw)·Ry(pitch)·Rx(roll)
};

}  // namespace kelvara
