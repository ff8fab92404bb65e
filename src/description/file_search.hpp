#pragma once

#include <filesystem>
#include <string>

#include "kelvara/description/file_search.hpp"

namespace kelvara::algorithms {

/// Finds a robot-description file by its name, as `resolve_robot_urdf_path` does.
std::filesystem::path find_config_file(const std::string& file_name);

}  // namespace kelvara::algorithms
