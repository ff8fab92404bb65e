#include "simulation/virtual_can/interface_claim.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "simulation/virtual_can/runtime_directory.hpp"

namespace kelvara::simulation {
namespace {

constexpr int kFirstIndex = 3;

/// Locks the runtime directory, so that one hub at a time sets up its interface.
Descriptor lock_directory() {
  const std::string directory = prepare_runtime_directory();
  Descriptor lock = checked(open((directory + "/lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600),
                            "cannot use " + directory);
  if (flock(lock.get(), LOCK_EX) != 0) {
    throw_errno("cannot lock " + directory);
  }
  return lock;
}

/// The name of the state file until the interface is published. Under the final name a process that
/// looks for live hubs would find the file before it is locked, and its own lock would refuse ours.
std::string pending_path(const InterfaceName& interface) {
  return interface.state_path() + ".pending";
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
  Descriptor guard = lock_directory();
  InterfaceName interface { choose_index(name), name };
  // A hub that died has left its files.
  for (const std::string& path :
       {interface.state_path(), interface.socket_path(), pending_path(interface)}) {
    unlink(path.c_str());
  }
  Descriptor state_file = create_state_file(pending_path(interface));
  return {std::move(interface), std::move(state_file), std::move(guard)};
}

void publish(InterfaceClaim& claim) {
  const std::string path = claim.interface.state_path();
  if (std::rename(pending_path(claim.interface).c_str(), path.c_str()) != 0) {
    throw_errno("cannot create " + path);
  }
  claim.guard.reset();
}

}  // namespace kelvara::simulation
