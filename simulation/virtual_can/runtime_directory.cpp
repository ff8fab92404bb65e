#include "simulation/virtual_can/runtime_directory.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <stdexcept>

#include "simulation/virtual_can/descriptor.hpp"

namespace kelvara::simulation {
namespace {

/// Why others could change the content of a directory; empty when they cannot.
std::string find_exposure(const std::string& path) {
  struct stat found {};
  if (lstat(path.c_str(), &found) != 0) {
    return "it does not exist";
  }
  if (!S_ISDIR(found.st_mode)) {
    return "it is not a directory";  // a symbolic link, for example
  }
  if (found.st_uid != geteuid()) {
    return "it belongs to another user";
  }
  return (found.st_mode & (S_IWGRP | S_IWOTH)) != 0 ? "other users may write to it" : "";
}

std::string directory_in(const std::string& base) {
  return base + "/kelvara-virtual-can-" + std::to_string(geteuid());
}

void prepare(const std::string& path) {
  if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
    throw_errno("cannot create " + path);
  }
  const std::string exposure = find_exposure(path);
  if (!exposure.empty()) {
    throw std::runtime_error("cannot use " + path + ": " + exposure +
                             "; set KELVARA_VIRTUAL_CAN_DIR to a directory of your own");
  }
}

bool has_separator(const std::string& path) { return path.find_first_of(" :") != path.npos; }

}  // namespace

std::string runtime_directory() {
  // NOLINTBEGIN(concurrency-mt-unsafe): the environment is read, never changed, here
  if (const char* chosen = std::getenv("KELVARA_VIRTUAL_CAN_DIR")) {
    return chosen;
  }
  const char* base = std::getenv("XDG_RUNTIME_DIR");
  // NOLINTEND(concurrency-mt-unsafe)
  return directory_in(base != nullptr && is_private_directory(base) ? base : "/tmp");
}

bool is_private_directory(const std::string& path) { return find_exposure(path).empty(); }

std::string prepare_runtime_directory() {
  std::string path = runtime_directory();
  prepare(path);
  return path;
}

std::string preload_path(const std::string& library) {
  if (!has_separator(library)) {
    return library;
  }
  std::string directory = std::filesystem::absolute(runtime_directory()).string();
  directory = has_separator(directory) ? directory_in("/tmp") : directory;
  prepare(directory);
  std::string link =
      directory + "/preload-" + std::to_string(std::hash<std::string>()(library)) + ".so";
  const std::string temporary = link + "." + std::to_string(getpid());
  // Renamed, so that a program that starts at the same time never finds the link missing.
  if (symlink(library.c_str(), temporary.c_str()) != 0 ||
      std::rename(temporary.c_str(), link.c_str()) != 0) {
    throw_errno("cannot create " + link);
  }
  return link;
}

}  // namespace kelvara::simulation
