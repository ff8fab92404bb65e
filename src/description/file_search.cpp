#include "description/file_search.hpp"

#include <dlfcn.h>

#include <array>
#include <sstream>
#include <stdexcept>

namespace kelvara::algorithms {
namespace {

constexpr const char* kKinematicsFileName = "robot_kinematics.yaml";
constexpr const char* kUrdfFileName = "BrimloV2.SLDASM.urdf";

std::filesystem::path library_directory() {
  Dl_info info{};
  const auto* address = reinterpret_cast<const void*>(&resolve_robot_kinematics_config_path);
  if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) {
    throw std::runtime_error("Failed to resolve libkelvara.so path via dladdr().");
  }
  return std::filesystem::path(info.dli_fname).parent_path();
}

}  // namespace

std::filesystem::path find_config_file(const std::string& file_name) {
  const std::filesystem::path library = library_directory();
  const std::filesystem::path above_library = library.parent_path();
  const std::filesystem::path current = std::filesystem::current_path();
  const std::filesystem::path above_current = current.parent_path();

  const std::array candidates{
      library / "config" / file_name,
      above_library / "config" / file_name,
      current / "config" / file_name,
      above_current / "config" / file_name,
      current / file_name,
      library / file_name,
      above_library / file_name,
      above_current / file_name,
  };
  for (const std::filesystem::path& candidate : candidates) {
    std::error_code error;
    if (!candidate.empty() && std::filesystem::exists(std::filesystem::status(candidate, error))) {
      return std::filesystem::canonical(candidate);
    }
  }
  std::ostringstream message;
  message << "Failed to locate config file '" << file_name << "'. "
          << "Checked relative to library path " << library << " and current path " << current
          << ".";
  throw std::runtime_error(message.str());
}

std::string resolve_robot_kinematics_config_path() {
  return find_config_file(kKinematicsFileName).string();
}

std::string resolve_robot_urdf_path() { return find_config_file(kUrdfFileName).string(); }

}  // namespace kelvara::algorithms
