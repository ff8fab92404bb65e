#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "simulation/virtual_can/descriptor.hpp"
#include "simulation/virtual_can/interface_directory.hpp"
#include "simulation/virtual_can/protocol.hpp"

/// Both ends of the control messages between a socket and its interface's hub.
namespace kelvara::simulation {

/// Sends a control message on a connected socket and waits until the hub has acted on it.
/// @return false when the hub died first, or never received the message.
bool request_and_wait(int socket_fd, const ControlMessage& message);

/// Connects to an interface's hub for one request, such as taking the interface down.
bool request_of_hub(const InterfaceName& interface, Request request);

/// What the hub receives from a socket: a frame or a control message.
struct Received {
  alignas(ControlMessage) std::array<std::uint8_t, sizeof(ControlMessage)> bytes{};
  std::size_t size = 0;
  Descriptor acknowledgement;  // of a control message: the pipe to confirm it on

  bool is_frame() const { return size == CAN_MTU || size == CANFD_MTU; }
  bool is_control() const { return size == sizeof(ControlMessage); }
  ControlMessage control() const;
};

enum class Arrival { kMessage, kNothing, kEnd };

/// Receives one message without blocking; kEnd when the socket has closed and all that it sent has
/// been received.
Arrival receive_message(int fd, Received& message);
/// Confirms that the hub has acted on a control message.
void acknowledge(const Received& message);

}  // namespace kelvara::simulation
