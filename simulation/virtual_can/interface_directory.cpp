#include "simulation/virtual_can/interface_directory.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "simulation/virtual_can/descriptor.hpp"
#include "simulation/virtual_can/libc_calls.hpp"
#include "simulation/virtual_can/runtime_directory.hpp"

namespace kelvara::simulation {
namespace {

constexpr const char* kStateSuffix = ".state";

/// A live hub holds a lock on its state file; a lock that can be taken means that the hub is dead.
bool is_alive(const std::string& state_path) {
  const int fd = open(state_path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return false;
  }
  const bool locked = flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  libc::close(fd);
  return locked;
}

std::optional<InterfaceName> parse_state_file(const std::filesystem::path& path) {
  const std::string stem = path.stem().string();
  const std::size_t dash = stem.find('-');
  int index = 0;
  if (path.extension() != kStateSuffix || dash == std::string::npos ||
      std::from_chars(stem.data(), stem.data() + dash, index).ec != std::errc()) {
    return std::nullopt;
  }
  return InterfaceName{index, stem.substr(dash + 1)};
}

template <typename Predicate>
std::optional<InterfaceName> find_if(Predicate predicate) {
  const std::vector<InterfaceName> interfaces = list_interfaces();
  const auto found = std::find_if(interfaces.begin(), interfaces.end(), predicate);
  return found == interfaces.end() ? std::nullopt : std::optional(*found);
}

}  // namespace

std::string InterfaceName::state_path() const {
  return runtime_directory() + "/" + std::to_string(index) + "-" + name + kStateSuffix;
}

std::string InterfaceName::socket_path() const {
  return runtime_directory() + "/" + std::to_string(index) + "-" + name + ".sock";
}

std::vector<InterfaceName> list_interfaces() {
  std::vector<InterfaceName> interfaces;
  const std::string directory = runtime_directory();
  if (!is_private_directory(directory)) {
    return interfaces;
  }
  std::error_code error;
  for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    const auto interface = parse_state_file(entry->path());
    if (interface && is_alive(entry->path().string())) {
      interfaces.push_back(*interface);
    }
  }
  std::sort(interfaces.begin(), interfaces.end(),
            [](const auto& a, const auto& b) { return a.index < b.index; });
  return interfaces;
}

std::optional<InterfaceName> find_interface(const std::string& name) {
  return find_if([&](const InterfaceName& interface) { return interface.name == name; });
}

std::optional<InterfaceName> find_interface(int index) {
  return find_if([&](const InterfaceName& interface) { return interface.index == index; });
}

std::shared_ptr<InterfaceState> map_state(int state_file) {
  void* page =
      mmap(nullptr, sizeof(InterfaceState), PROT_READ | PROT_WRITE, MAP_SHARED, state_file, 0);
  if (page == MAP_FAILED) {
    return nullptr;
  }
  return {static_cast<InterfaceState*>(page),
          [](InterfaceState* state) { munmap(state, sizeof(InterfaceState)); }};
}

std::shared_ptr<InterfaceState> map_state(const InterfaceName& interface) {
  const Descriptor state_file(open(interface.state_path().c_str(), O_RDWR | O_CLOEXEC));
  return state_file.get() < 0 ? nullptr : map_state(state_file.get());
}

sockaddr_un hub_address(const InterfaceName& interface) {
  const std::string path = interface.socket_path();
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    throw std::length_error("the path " + path + " is too long for a Unix socket");
  }
  std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
  return address;
}

}  // namespace kelvara::simulation
