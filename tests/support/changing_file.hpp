#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

/// Changes a file's text between its first opening and all later ones.
class ChangingFile {
 public:
  ChangingFile(const std::string& name, const std::string& later) {
    std::stringstream text;
    text << std::ifstream(name).rdbuf();
    std::ofstream(name + ".later") << later;
    std::filesystem::remove(name);
    mkfifo(name.c_str(), 0600);
    writer_ = std::thread([name, first = text.str()] {
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
