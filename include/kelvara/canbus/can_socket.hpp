#pragma once

#include <linux/can.h>
#include <sys/types.h>

#include <cstddef>
#include <stdexcept>
#include <string>

#include "kelvara/export.hpp"

namespace kelvara::canbus {

/// The one error of the bus layer; its text is "Socket error: " and the message.
class KELVARA_EXPORT CANSocketException : public std::runtime_error {
 public:
  explicit CANSocketException(const std::string& message)
      : std::runtime_error("Socket error: " + message) {}
};

/// Owns one raw SocketCAN socket, bound to one interface, in classic CAN or CAN-FD mode.
///
/// The interface itself is configured and brought up outside. Open from construction until
/// `cleanup()` or destruction; never reopened. Takes no lock: one thread may read while another
/// writes, the kernel serialises the calls.
class KELVARA_EXPORT CANSocket {
 public:
  /// Opens and binds the socket.
  /// @param interface Interface name, for example "can0"; only its first 15 characters count.
  /// @param canfd     true: CAN-FD frames may be read and written. An interface without CAN-FD
  ///                  opens all the same; every write of such a frame fails on it.
  /// @throws CANSocketException "Failed to initialize socket for interface: NAME". When the
  ///         interface exists but is down, a hint on standard error goes before.
  CANSocket(const std::string& interface, bool canfd);
  ~CANSocket();

  CANSocket(const CANSocket&) = delete;
  CANSocket& operator=(const CANSocket&) = delete;

  /// Creates, configures and binds the socket; the constructor's work. False on any failure, with
  /// nothing left open.
  bool initialize_socket(const std::string& interface);

  /// Closes the socket; every later read or write fails. Harmless when repeated.
  void cleanup();

  /// One `read` of at most `len` bytes; -1 when not open. Waits at most 100 microseconds.
  ssize_t read_raw_frame(void* buf, size_t len);
  /// One `write` of `len` bytes; -1 when not open.
  ssize_t write_raw_frame(const void* buf, size_t len);

  /// Reads one frame; true only when a whole classic (16 byte) frame arrived.
  bool read_can_frame(can_frame& frame);
  /// Reads one frame; true only when a whole CAN-FD (72 byte) frame arrived.
  bool read_canfd_frame(canfd_frame& frame);
  /// Writes one classic frame; true only when it was taken whole. Nothing is retried.
  bool write_can_frame(const can_frame& frame);
  /// Writes one CAN-FD frame; true only when it was taken whole. Nothing is retried.
  bool write_canfd_frame(const canfd_frame& frame);

  /// Waits until a frame can be read.
  /// @param timeout_us Longest wait in microseconds; 0 polls.
  /// @return true when readable; false on time-out, error, or when not open.
  bool is_data_available(int timeout_us);

  bool is_initialized() const { return initialized; }
  bool is_canfd_enabled() const { return canfd_enabled; }
  const std::string& get_interface_name() const { return interface_name; }

 private:
  bool bind_to_interface(const std::string& interface);

  int socket_fd = -1;          // -1 while closed
  std::string interface_name;  // as given to the constructor
  bool canfd_enabled;
  bool initialized = false;
};

}  // namespace kelvara::canbus
