#pragma once

#include <filesystem>
#include <string>

namespace kelvara::algorithms {

/// Finds a robot-description file relative to the loaded library and the current directory.
std::filesystem::path find_config_file(const std::string& file_name);

}  // namespace kelvara::algorithms
