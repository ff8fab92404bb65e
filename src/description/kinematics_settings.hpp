#pragma once

#include <string>

#include "description/urdf.hpp"

namespace kelvara::description {

/// The tool frame and the payload that the arm carries, relative to the last link.
struct KinematicsConfig {
  Triple tool_xyz{};  // m
  Triple tool_rpy{};  // rad
  bool has_payload = false;
  UrdfInertial payload;  // a point mass: its tensor is zero
};

/// Reads the part `kinematics` of a YAML file. Infinite and NaN values are returned as read.
/// @throws UnreadableFile (a std::runtime_error) when the file cannot be opened or parsed.
/// @throws std::runtime_error for a field that is missing or malformed.
KinematicsConfig load_kinematics_config(const std::string& path);

}  // namespace kelvara::description
