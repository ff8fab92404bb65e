#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "simulation/virtual_can/interface_directory.hpp"

namespace kelvara::simulation {

/// The used part of an address: family and interface index.
inline constexpr socklen_t kAddressSize = offsetof(sockaddr_can, can_addr);

/// One raw CAN socket of this process: a Unix socket that, once bound, is connected to its
/// interface's hub. Every operation behaves as the kernel's does, sets errno and returns -1 on
/// failure. As with the kernel's sockets, one thread may read while another writes.
class VirtualSocket {
 public:
  explicit VirtualSocket(int fd) : fd_(fd) { options_.filters[0] = can_filter{0, 0}; }
  ~VirtualSocket();
  VirtualSocket(const VirtualSocket&) = delete;
  VirtualSocket& operator=(const VirtualSocket&) = delete;

  /// Why the kernel would refuse a socket of this type and protocol: an error number, 0 when it
  /// would not.
  static int refusal(int type, int protocol);
  static bool knows_ioctl(unsigned long code);

  int bind(const sockaddr* address, socklen_t length);
  int getsockname(sockaddr* address, socklen_t* length) const;
  int ioctl(unsigned long code, void* argument) const;
  /// Handles SOL_CAN_RAW, and of SOL_SOCKET what depends on the interface; no value for other
  /// options.
  std::optional<int> setsockopt(int level, int name, const void* value, socklen_t length);
  std::optional<int> getsockopt(int level, int name, void* value, socklen_t* length);
  ssize_t receive(msghdr& message, int flags);
  ssize_t send(const msghdr& message, int flags);
  /// Call before waiting: discards stale marks, so that the descriptor is readable only when a
  /// frame or an error is pending.
  void settle();
  /// The events that poll() on a kernel's socket would report; `found` are the Unix socket's.
  short poll_result(short found) const;

 private:
  int apply_options();
  int set_timestamp_option(int name, const void* value, socklen_t length);
  /// Connects the Unix socket; an error number, 0 for success.
  int connect_to_hub(const InterfaceName& interface);
  int attach(const InterfaceName& interface, std::shared_ptr<InterfaceState> state);
  bool is_bound() const { return state_ != nullptr && state_->gone == 0U; }
  /// Returns and clears the interface's pending error; 0 if there is none.
  int take_error();
  /// Whether a received packet holds a frame. Counts a mark; handles the end of the connection.
  bool is_frame(const PacketHeader& header, ssize_t size, int flags);
  /// Replaces the descriptor with one that never becomes readable (the interface has gone).
  void go_idle();
  void close_idle_end();
  /// Makes the descriptor refer to another socket, with the same modes and time-outs. Closes
  /// `replacement`.
  bool replace_descriptor(int replacement);
  /// Why a frame of `size` bytes cannot be sent to an interface; an error number or 0.
  int check_frame(std::size_t size, int destination) const;
  /// The error that a write gives now; it counts as reported. 0 for none.
  int take_write_error(const canfd_frame& frame, std::size_t size);
  void add_timestamp(msghdr& message, std::uint64_t time_ns) const;

  int fd_;
  InterfaceName interface_;
  int bound_index_ = 0;                           // as requested: 0 is any interface
  std::shared_ptr<InterfaceState> state_;         // null until bound
  std::atomic<std::uint32_t> reported_downs_{0};  // how many of the interface's downs were reported
  std::atomic<bool> reported_gone_{false};
  std::atomic<std::uint32_t> taken_marks_{0};  // how many of the hub's marks were read
  int idle_end_ = -1;                          // other end of the socket that go_idle() installs
  SocketOptions options_;
  int timestamp_option_ = 0;  // SO_TIMESTAMP, SO_TIMESTAMPNS or none
};

}  // namespace kelvara::simulation
