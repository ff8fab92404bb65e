#pragma once

#include <sys/un.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulation/virtual_can/protocol.hpp"

/// The runtime directory: each interface has a state file, which its hub keeps locked while it
/// lives, and a listening socket, both named "INDEX-NAME".
namespace kelvara::simulation {

/// KELVARA_VIRTUAL_CAN_DIR, or a directory of the user's own under XDG_RUNTIME_DIR or /tmp.
std::string runtime_directory();

struct InterfaceName {
  int index = 0;
  std::string name;

  std::string state_path() const;
  std::string socket_path() const;
};

/// The interfaces whose hub lives, in order of index.
std::vector<InterfaceName> list_interfaces();
std::optional<InterfaceName> find_interface(const std::string& name);
std::optional<InterfaceName> find_interface(int index);

/// The shared page of an interface, null when it cannot be mapped. Unmapped with the last owner.
std::shared_ptr<InterfaceState> map_state(const InterfaceName& interface);

/// The address of an interface's hub.
/// @throws std::length_error when the runtime directory's path is too long for a Unix socket.
sockaddr_un hub_address(const InterfaceName& interface);

/// Sends a control message on a connected socket and waits until the hub has acted on it.
bool request_and_wait(int socket_fd, const ControlMessage& message);

/// Connects to an interface's hub for one request of its own, such as taking the interface down.
bool request_of_hub(const InterfaceName& interface, Request request);

}  // namespace kelvara::simulation
