#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string>

#include "simulation/virtual_can/interface_directory.hpp"

namespace kelvara::simulation {

/// One raw CAN socket of this process: a Unix socket that, once bound, is connected to its
/// interface's hub. Every operation behaves as the kernel's does, sets errno and returns -1 on
/// failure. As with the kernel's sockets, reading and writing may run on different threads.
class VirtualSocket {
 public:
  explicit VirtualSocket(int fd) : fd_(fd) { options_.filters[0] = can_filter{0, 0}; }

  int bind(const sockaddr* address, socklen_t length);
  int getsockname(sockaddr* address, socklen_t* length) const;
  int ioctl(unsigned long request, void* argument) const;
  /// Options of the CAN layer; false in `handled` when the option is not one of them.
  int setsockopt(int level, int name, const void* value, socklen_t length, bool& handled);
  int getsockopt(int level, int name, void* value, socklen_t* length, bool& handled) const;
  ssize_t receive(msghdr& message, int flags);
  ssize_t send(const msghdr& message, int flags);

 private:
  int apply_options();
  int set_filters(const void* value, socklen_t length);
  int set_flag(int level, int name, const void* value, socklen_t length, bool& handled);
  bool is_bound() const { return state_ != nullptr; }
  void add_timestamp(msghdr& message, std::uint64_t time_ns) const;

  int fd_;
  InterfaceName interface_;
  std::shared_ptr<InterfaceState> state_;  // null until bound
  SocketOptions options_;
  int timestamp_option_ = 0;  // SO_TIMESTAMP, SO_TIMESTAMPNS or none
};

}  // namespace kelvara::simulation
