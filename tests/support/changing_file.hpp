#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

/// Changes a file's text between its first opening and all later ones.
class ChangingFile {
 public:
  ChangingFile(const std::string& name, const std::string& later) {
    std::stringstream text;
    text << std::ifstream(name).rdbuf();
    std::ofstream(name + ".later") << later;
    std::filesystem::remove(name);
    mkfifo(name.c_str(), 0600);
    std::packaged_task<void()> write([name, first = text.str()] {
      std::ofstream pipe(name);  // waits for the reader, who keeps the pipe when it is replaced
      std::filesystem::rename(name + ".later", name);
      pipe << first;
    });
    written_ = write.get_future();
    std::thread(std::move(write)).detach();  // the process may end before this is destroyed
  }
  ~ChangingFile() { written_.wait(); }
  ChangingFile(const ChangingFile&) = delete;
  ChangingFile& operator=(const ChangingFile&) = delete;

 private:
  std::future<void> written_;
};
