#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

#include "simulation/virtual_can/interface_directory.hpp"

namespace kelvara::simulation {

/// How much of an address counts: family and interface index.
inline constexpr socklen_t kAddressSize = offsetof(sockaddr_can, can_addr);

/// One raw CAN socket of this process: a Unix socket that, once bound, is connected to its
/// interface's hub. Every operation behaves as the kernel's does, sets errno and returns -1 on
/// failure. As with the kernel's sockets, reading and writing may run on different threads.
class VirtualSocket {
 public:
  explicit VirtualSocket(int fd) : fd_(fd) { options_.filters[0] = can_filter{0, 0}; }
  ~VirtualSocket();
  VirtualSocket(const VirtualSocket&) = delete;
  VirtualSocket& operator=(const VirtualSocket&) = delete;

  /// The error number with which a socket of this type and protocol is refused; 0 when it is not.
  static int refusal(int type, int protocol);
  static bool knows_ioctl(unsigned long request);

  int bind(const sockaddr* address, socklen_t length);
  int getsockname(sockaddr* address, socklen_t* length) const;
  int ioctl(unsigned long request, void* argument) const;
  /// Options of the CAN layer and some of every socket's; false in `handled` for others.
  int setsockopt(int level, int name, const void* value, socklen_t length, bool& handled);
  int getsockopt(int level, int name, void* value, socklen_t* length, bool& handled);
  ssize_t receive(msghdr& message, int flags);
  ssize_t send(const msghdr& message, int flags);
  /// Before a wait for frames: takes out what makes the descriptor readable for no reason any more.
  void settle();
  /// What the kernel's poll would say where the descriptor's own says `found`.
  short poll_result(short found) const;

 private:
  int apply_options();
  int set_filters(const void* value, socklen_t length);
  int set_flag(int level, int name, const void* value, socklen_t length, bool& handled);
  bool is_bound() const { return state_ != nullptr && state_->gone == 0U; }
  /// The error of the interface that nobody was told of yet, which is told by this; 0 for none.
  int take_error();
  /// Whether what was read is a frame; counts a mark, and notices the end.
  bool is_frame(const PacketHeader& header, ssize_t size, int flags);
  /// Puts a descriptor in the place of its own to which nothing ever comes.
  void go_idle();
  void close_idle_end();
  /// Puts another open file behind the descriptor, with the same modes and time limits.
  bool replace_descriptor(int replacement);
  void add_timestamp(msghdr& message, std::uint64_t time_ns) const;

  int fd_;
  InterfaceName interface_;
  int bound_index_ = 0;                       // as asked for: 0 is any interface
  std::shared_ptr<InterfaceState> state_;     // null until bound
  std::atomic<std::uint32_t> told_downs_{0};  // so often of the interface's downs
  std::atomic<bool> told_gone_{false};
  std::atomic<std::uint32_t> taken_marks_{0};  // as told_downs_: of the hub's marks
  int idle_end_ = -1;  // other end of what stands in for an interface that has gone
  SocketOptions options_;
  int timestamp_option_ = 0;  // SO_TIMESTAMP, SO_TIMESTAMPNS or none
};

}  // namespace kelvara::simulation
