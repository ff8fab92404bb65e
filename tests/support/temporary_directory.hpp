#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

/// A directory of its own, made the current one while it lives and removed afterwards.
class TemporaryWorkingDirectory {
 public:
  TemporaryWorkingDirectory() : before_(std::filesystem::current_path()) {
    std::string name = (std::filesystem::temp_directory_path() / "kelvara-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("cannot make a temporary directory");
    }
    path_ = std::filesystem::canonical(name) / "inner";
    std::filesystem::create_directory(path_);
    std::filesystem::current_path(path_);
  }
  ~TemporaryWorkingDirectory() {
    std::filesystem::current_path(before_);
    std::filesystem::remove_all(path_.parent_path());
  }
  TemporaryWorkingDirectory(const TemporaryWorkingDirectory&) = delete;
  TemporaryWorkingDirectory& operator=(const TemporaryWorkingDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }

  /// Writes a file, its folders included, relative to the directory.
  void write(const std::string& name, const std::string& text) const {
    std::filesystem::create_directories((path_ / name).parent_path());
    std::ofstream(path_ / name) << text;
  }

 private:
  std::filesystem::path before_;
  std::filesystem::path path_;
};
