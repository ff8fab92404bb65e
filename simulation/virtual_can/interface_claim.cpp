#include "simulation/virtual_can/interface_claim.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <stdexcept>

namespace kelvara::simulation {
namespace {

constexpr int kFirstIndex = 3;

/// Creates the runtime directory and locks it, so that one hub at a time chooses its index.
Descriptor lock_directory(const std::string& directory) {
  if (mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) {
    throw_errno("cannot create " + directory);
  }
  Descriptor lock = checked(open((directory + "/lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600),
                            "cannot use " + directory);
  if (flock(lock.get(), LOCK_EX) != 0) {
    throw_errno("cannot lock " + directory);
  }
  return lock;
}

/// The lowest index that no interface has.
int choose_index(const std::string& name) {
  int index = kFirstIndex;
  for (const InterfaceName& interface : list_interfaces()) {
    if (interface.name == name) {
      throw std::runtime_error("interface " + name + " is busy: it has a hub already");
    }
    index = interface.index == index ? index + 1 : index;
  }
  return index;
}

Descriptor create_state_file(const std::string& path) {
  Descriptor state = checked(open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600),
                             "cannot create " + path);
  if (ftruncate(state.get(), sizeof(InterfaceState)) != 0 ||
      flock(state.get(), LOCK_EX | LOCK_NB) != 0) {
    throw_errno("cannot set up " + path);
  }
  return state;
}

}  // namespace

void check_interface_name(const std::string& name) {
  const bool bad_character = std::any_of(name.begin(), name.end(), [](unsigned char c) {
    return c == '/' || std::isspace(c) != 0 || std::iscntrl(c) != 0;
  });
  if (name.empty() || name.size() > 15 || bad_character || name == "." || name == "..") {
    throw std::invalid_argument("'" + name + "' is not an interface name");
  }
}

InterfaceClaim claim_interface(const std::string& name) {
  const Descriptor guard = lock_directory(runtime_directory());
  const InterfaceName interface { choose_index(name), name };
  // A hub that died has left its files.
  unlink(interface.state_path().c_str());
  unlink(interface.socket_path().c_str());
  return {interface, create_state_file(interface.state_path())};
}

}  // namespace kelvara::simulation
