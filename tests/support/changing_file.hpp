#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

/// A file with one text for whoever opens it first, and another for all later.
class ChangingFile {
 public:
  ChangingFile(const std::string& name, const std::string& first, const std::string& later) {
    std::filesystem::create_directories(std::filesystem::absolute(name).parent_path());
    std::ofstream(name + ".later") << later;
    mkfifo(name.c_str(), 0600);
    writer_ = std::thread([name, first] {
      std::ofstream pipe(name);  // waits for the reader, who keeps the pipe when it is replaced
      std::filesystem::rename(name + ".later", name);
      pipe << first;
    });
  }
  ~ChangingFile() { writer_.join(); }
  ChangingFile(const ChangingFile&) = delete;
  ChangingFile& operator=(const ChangingFile&) = delete;

 private:
  std::thread writer_;
};
