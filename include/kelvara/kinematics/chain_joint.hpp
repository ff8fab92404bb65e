#pragma once

#include <array>
#include <string>

namespace kelvara::kinematics {

/// One joint of the URDF chain.
struct ChainJoint {
  std::string name;
  std::array<double, 3> xyz;   // origin in the parent link, m
  std::array<double, 3> rpy;   // origin rotation, rad
  std::array<double, 3> axis;  // unit axis
  std::string type = {};       // as in the URDF: "revolute", "continuous", "prismatic" or "fixed"
};

}  // namespace kelvara::kinematics
