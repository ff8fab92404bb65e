#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "support/temporary_directory.hpp"

/// Makes a copy of the robot description the one that the library finds, for edits.
class EditedDescription {
 public:
  EditedDescription()
      : original_(std::filesystem::absolute("config")), directory_(), settings_(read_settings()) {
    std::filesystem::copy(original_, directory_.path() / "config");
  }

  /// Replaces the first occurrence of a text in the YAML file; the edits before are undone.
  void edit(const std::string& text, const std::string& replacement) const {
    const std::size_t at = settings_.find(text);
    if (at == std::string::npos) {
      throw std::runtime_error("the settings do not hold " + text);
    }
    std::string edited = settings_;
    directory_.write("config/robot_kinematics.yaml", edited.replace(at, text.size(), replacement));
  }

 private:
  std::string read_settings() const {
    std::stringstream text;
    text << std::ifstream(original_ / "robot_kinematics.yaml").rdbuf();
    return text.str();
  }

  std::filesystem::path original_;
  TemporaryWorkingDirectory directory_;
  std::string settings_;
};
