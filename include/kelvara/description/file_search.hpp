#pragma once

#include <string>

#include "kelvara/export.hpp"

namespace kelvara::algorithms {

/// Finds "robot_kinematics.yaml" and returns its canonical path. Each call searches again: the
/// "config" folders beside the loaded library, above it, in the current directory and above that;
/// then the current directory itself, the library's, the one above it, and the one above the
/// current directory. Any thread.
/// @throws std::runtime_error when the file is in none of them.
KELVARA_EXPORT std::string resolve_robot_kinematics_config_path();
/// Finds the robot's URDF file in the same way.
KELVARA_EXPORT std::string resolve_robot_urdf_path();

}  // namespace kelvara::algorithms
