#pragma once

#include <linux/can.h>
#include <sys/types.h>

#include <cstddef>
#include <stdexcept>
#include <string>

#include "kelvara/export.hpp"

namespace kelvara::canbus {

/// The only error that the bus layer throws; its text is "Socket error: " followed by the message.
class KELVARA_EXPORT CANSocketException : public std::runtime_error {
 public:
  explicit CANSocketException(const std::string& message)
      : std::runtime_error("Socket error: " + message) {}
};

/// Owns one raw SocketCAN socket, bound to one interface, in classic CAN or CAN-FD mode.
///
/// The interface must be configured and up. The socket is open from construction until `cleanup()`
/// or destruction and cannot be reopened. Takes no lock: one thread may read while another writes;
/// the kernel serialises the calls.
class KELVARA_EXPORT CANSocket {
 public:
  /// Opens and binds the socket.
  /// @param interface Interface name, for example "can0"; only its first 15 characters are used.
  /// @param canfd     true: CAN-FD frames may be read and written. An interface without CAN-FD
  ///                  opens too, but every write of a CAN-FD frame then fails.
  /// @throws CANSocketException "Failed to initialize socket for interface: NAME". If the
  ///         interface exists but is down, a hint is printed on standard error first.
  CANSocket(const std::string& interface, bool canfd);
  ~CANSocket();

  CANSocket(const CANSocket&) = delete;
  CANSocket& operator=(const CANSocket&) = delete;

  /// Creates, configures and binds the socket; called by the constructor. On any failure closes the
  /// socket and returns false.
  bool initialize_socket(const std::string& interface);

  /// Closes the socket; every later read or write fails. May be called again.
  void cleanup();

  /// Calls `read` once for at most `len` bytes; blocks for at most 100 µs. -1 when not open.
  ssize_t read_raw_frame(void* buf, size_t len);
  /// Calls `write` once with `len` bytes. -1 when not open.
  ssize_t write_raw_frame(const void* buf, size_t len);

  /// Reads one frame; blocks for at most 100 µs. True only for a whole classic (16 byte) frame.
  bool read_can_frame(can_frame& frame);
  /// Reads one frame; blocks for at most 100 µs. True only for a whole CAN-FD (72 byte) frame.
  bool read_canfd_frame(canfd_frame& frame);
  /// Writes one classic frame, without retry. True only when the socket accepted all of it.
  bool write_can_frame(const can_frame& frame);
  /// Writes one CAN-FD frame, without retry. True only when the socket accepted all of it.
  bool write_canfd_frame(const canfd_frame& frame);

  /// Blocks until the socket is readable.
  /// @param timeout_us Longest wait in microseconds; 0 polls.
  /// @return true when a frame or an error can be read; false on time-out, on failure of the wait,
  ///         or when not open.
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
