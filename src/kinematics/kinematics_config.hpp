#pragma once

#include <string>

#include "kinematics/urdf_chain.hpp"

namespace kelvara::kinematics {

/// The tool frame and the payload that the arm carries, relative to the last link.
struct KinematicsConfig {
  Triple tool_xyz{};  // m
  Triple tool_rpy{};  // rad
  bool has_payload = false;
  UrdfInertial payload;  // a point mass: its tensor is zero
};

/// Reads the `kinematics` part of the robot's YAML file, which it locates itself.
/// @throws std::runtime_error for a file that cannot be read or is malformed.
KinematicsConfig load_kinematics_config();

}  // namespace kelvara::kinematics
