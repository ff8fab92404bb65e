#pragma once

#include "description/urdf.hpp"

namespace kelvara::description {

/// The tool frame and the payload that the arm carries, relative to the last link.
struct KinematicsConfig {
  Triple tool_xyz{};  // m
  Triple tool_rpy{};  // rad
  bool has_payload = false;
  UrdfInertial payload;  // a point mass: its tensor is zero
};

/// Finds "robot_kinematics.yaml" and reads its part `kinematics`. Infinite and NaN values are
/// returned as read.
/// @throws UnreadableFile (a std::runtime_error) when the file cannot be opened or parsed.
/// @throws std::runtime_error when there is no file, and for a field that is missing or malformed.
KinematicsConfig load_kinematics_config();

}  // namespace kelvara::description
