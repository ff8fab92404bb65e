#pragma once

#include <linux/can.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
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
/// the kernel serialises the calls. A signal does not end a call early. The kernel rounds the times
/// below up to its tick, 1 to 10 ms.
///
/// Only the process that constructed the socket uses the bus: after `fork()` every read, write and
/// wait of the child fails, and its destructor closes the child's descriptor alone. The descriptor
/// is closed on exec.
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

  /// Reads one frame of at most `len` bytes; blocks for at most 100 µs. Returns the number of
  /// bytes, or -1: nothing arrived, the interface failed, or the socket is not open.
  ssize_t read_raw_frame(void* buf, size_t len);
  /// Writes `len` bytes; blocks for at most 1 ms. Returns the number of bytes, or -1.
  ssize_t write_raw_frame(const void* buf, size_t len);

  /// Reads one frame; blocks for at most 100 µs. True only for a whole classic (16 byte) frame.
  bool read_can_frame(can_frame& frame);
  /// Reads one frame; blocks for at most 100 µs. True only for a whole CAN-FD (72 byte) frame.
  bool read_canfd_frame(canfd_frame& frame);
  /// Writes one classic frame, without retry. True only when the socket accepted all of it. Blocks
  /// for at most 1 ms, while the socket's send buffer is full.
  bool write_can_frame(const can_frame& frame);
  /// Writes one CAN-FD frame, without retry. True only when the socket accepted all of it. Blocks
  /// as `write_can_frame`.
  bool write_canfd_frame(const canfd_frame& frame);

  /// Blocks until the socket is readable.
  /// @param timeout_us Longest wait in microseconds; 0 polls.
  /// @return true when a frame or an error can be read; false on time-out, on failure of the wait,
  ///         or when not open.
  bool is_data_available(int timeout_us);

  /// The number of frames that a write call did not get accepted, since construction. The writes of
  /// a child process do not count. Any thread may call it.
  std::uint64_t refused_frames() const { return refused_frames_.load(std::memory_order_relaxed); }
  /// The error number of the last refused frame: ENOBUFS when the interface's transmit queue is
  /// full, EAGAIN when the send buffer stayed full for 1 ms, ENETDOWN when the interface is down; 0
  /// when no frame was refused. Any thread may call it.
  int last_write_error() const { return last_write_error_.load(std::memory_order_relaxed); }
  /// False in a child process of the one that constructed the socket. Any thread may call it.
  bool belongs_to_this_process() const;

  bool is_initialized() const { return initialized; }
  bool is_canfd_enabled() const { return canfd_enabled; }
  const std::string& get_interface_name() const { return interface_name; }

 private:
  bool bind_to_interface(const std::string& interface);
  bool can_be_read() const { return initialized && belongs_to_this_process(); }

  int socket_fd = -1;          // -1 while closed
  std::string interface_name;  // as given to the constructor
  bool canfd_enabled;
  bool initialized = false;
  const unsigned process_;  // generation of the constructing process
  std::atomic<std::uint64_t> refused_frames_{0};
  std::atomic<int> last_write_error_{0};
};

}  // namespace kelvara::canbus
