#pragma once

#include <sys/un.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulation/virtual_can/protocol.hpp"

/// The runtime directory: each interface has a state file, which its hub keeps locked, and a
/// listening socket, both named "INDEX-NAME".
namespace kelvara::simulation {

struct InterfaceName {
  int index = 0;
  std::string name;

  std::string state_path() const;
  std::string socket_path() const;
};

/// The interfaces that have a live hub, in order of index; none in a directory that is not private.
std::vector<InterfaceName> list_interfaces();
std::optional<InterfaceName> find_interface(const std::string& name);
std::optional<InterfaceName> find_interface(int index);

/// Maps the shared page of an interface, null on failure. The last owner unmaps it.
std::shared_ptr<InterfaceState> map_state(const InterfaceName& interface);
std::shared_ptr<InterfaceState> map_state(int state_file);

/// The address of an interface's hub.
/// @throws std::length_error when the runtime directory's path is too long for a Unix socket.
sockaddr_un hub_address(const InterfaceName& interface);

}  // namespace kelvara::simulation
