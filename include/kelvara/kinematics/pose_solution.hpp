#pragma once

#include <array>

namespace kelvara {

/// Joint angles that bring the tool to a pose.
struct PoseSolution {
  std::array<double, 6> q{};  // rad
  bool singular = false;      // one of a continuum: the arm can move without moving the tool
};

}  // namespace kelvara
