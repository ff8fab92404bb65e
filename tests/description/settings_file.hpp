#pragma once

#include <string>

#include "support/outcomes.hpp"
#include "support/temporary_directory.hpp"

/// The message that `load` fails with when `text` is the robot's YAML file, named FILE in it.
template <typename Load>
std::string settings_error(const std::string& text, Load load) {
  const TemporaryWorkingDirectory directory;
  directory.write("config/robot_kinematics.yaml", text);
  std::string error = error_of(load);
  const std::string path = (directory.path() / "config/robot_kinematics.yaml").string();
  const std::size_t at = error.find(path);
  return at == std::string::npos ? error : error.replace(at, path.size(), "FILE");
}
