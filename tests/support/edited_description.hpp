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
  EditedDescription() : original_(std::filesystem::absolute("config")) {
    std::filesystem::copy(original_, directory_.path() / "config");
  }

  /// Replaces the first occurrence of a text in the YAML file; the edits before are undone.
  void edit(const std::string& text, const std::string& replacement) const {
    edit_file("robot_kinematics.yaml", text, replacement);
  }
  /// The same in the URDF file.
  void edit_urdf(const std::string& text, const std::string& replacement) const {
    edit_file("BrimloV2.SLDASM.urdf", text, replacement);
  }

  /// The folder of both files.
  std::filesystem::path path() const { return directory_.path() / "config"; }

 private:
  void edit_file(const std::string& name, const std::string& text,
                 const std::string& replacement) const {
    std::stringstream content;
    content << std::ifstream(original_ / name).rdbuf();
    std::string edited = content.str();
    const std::size_t at = edited.find(text);
    if (at == std::string::npos) {
      throw std::runtime_error(name + " does not hold " + text);
    }
    directory_.write("config/" + name, edited.replace(at, text.size(), replacement));
  }

  std::filesystem::path original_;
  TemporaryWorkingDirectory directory_;
};
