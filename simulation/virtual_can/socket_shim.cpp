// Replaces the C library's socket calls in a process that preloads or links this library: raw CAN
// sockets are virtual, all other descriptors are passed to the C library.

#include <linux/can.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

#include "simulation/virtual_can/interface_directory.hpp"
#include "simulation/virtual_can/libc_calls.hpp"
#include "simulation/virtual_can/virtual_socket.hpp"

namespace {

using kelvara::simulation::VirtualSocket;
namespace libc = kelvara::simulation::libc;

constexpr int kMaxDescriptors = 65536;
constinit std::array<std::atomic<VirtualSocket*>, kMaxDescriptors> virtual_sockets{};

VirtualSocket* find(int fd) {
  return fd >= 0 && fd < kMaxDescriptors
             ? virtual_sockets[static_cast<std::size_t>(fd)].load(std::memory_order_acquire)
             : nullptr;
}

/// Runs an operation of a virtual socket and turns exceptions into an error number for C callers.
template <typename Operation>
auto guarded(Operation operation) noexcept -> decltype(operation()) {
  try {
    return operation();
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
  } catch (const std::exception&) {
    errno = ENODEV;
  }
  return -1;
}

/// Waits with one of the poll calls and corrects the events of virtual sockets.
template <typename Wait>
int poll_with(pollfd* fds, nfds_t count, Wait wait) {
  for (nfds_t i = 0; i < count; ++i) {
    VirtualSocket* can = find(fds[i].fd);
    if (can != nullptr && (fds[i].events & POLLIN) != 0) {
      can->settle();
    }
  }
  const int found = wait();
  if (found < 0) {
    return found;
  }
  int ready = 0;
  for (nfds_t i = 0; i < count; ++i) {
    if (const VirtualSocket* can = find(fds[i].fd)) {
      fds[i].revents = can->poll_result(fds[i].revents);
    }
    ready += fds[i].revents != 0 ? 1 : 0;
  }
  return ready;
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  if (domain != AF_CAN) {
    return libc::socket(domain, type, protocol);
  }
  if (const int error = VirtualSocket::refusal(type, protocol)) {
    errno = error;
    return -1;
  }
  const int options = type & (SOCK_CLOEXEC | SOCK_NONBLOCK);
  const int fd = libc::socket(AF_UNIX, SOCK_SEQPACKET | options, 0);
  if (fd < 0) {
    return fd;
  }
  auto* created = fd < kMaxDescriptors ? new (std::nothrow) VirtualSocket(fd) : nullptr;
  if (created == nullptr) {
    libc::close(fd);
    errno = ENOMEM;
    return -1;
  }
  virtual_sockets[static_cast<std::size_t>(fd)].store(created, std::memory_order_release);
  return fd;
}

int close(int fd) {
  if (find(fd) != nullptr) {
    delete virtual_sockets[static_cast<std::size_t>(fd)].exchange(nullptr);
  }
  return libc::close(fd);
}

int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
  VirtualSocket* can = find(fd);
  return can == nullptr ? libc::bind(fd, address, length)
                        : guarded([&] { return can->bind(address, length); });
}

int getsockname(int fd, sockaddr* address, socklen_t* length) noexcept {
  VirtualSocket* can = find(fd);
  return can == nullptr ? libc::getsockname(fd, address, length)
                        : can->getsockname(address, length);
}

int ioctl(int fd, unsigned long code, ...) noexcept {
  va_list arguments;
  va_start(arguments, code);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  VirtualSocket* can = find(fd);
  return can == nullptr || !VirtualSocket::knows_ioctl(code)
             ? libc::ioctl(fd, code, argument)
             : guarded([&] { return can->ioctl(code, argument); });
}

int setsockopt(int fd, int level, int name, const void* value, socklen_t length) noexcept {
  if (VirtualSocket* can = find(fd)) {
    const auto result = guarded([&] { return can->setsockopt(level, name, value, length); });
    if (result) {
      return *result;
    }
  }
  return libc::setsockopt(fd, level, name, value, length);
}

int getsockopt(int fd, int level, int name, void* value, socklen_t* length) noexcept {
  if (VirtualSocket* can = find(fd)) {
    if (const std::optional<int> result = can->getsockopt(level, name, value, length)) {
      return *result;
    }
  }
  return libc::getsockopt(fd, level, name, value, length);
}

ssize_t read(int fd, void* buffer, size_t size) {
  VirtualSocket* can = find(fd);
  return can == nullptr ? libc::read(fd, buffer, size) : recv(fd, buffer, size, 0);
}

ssize_t write(int fd, const void* buffer, size_t size) {
  VirtualSocket* can = find(fd);
  return can == nullptr ? libc::write(fd, buffer, size) : send(fd, buffer, size, 0);
}

ssize_t recvmsg(int fd, msghdr* message, int flags) {
  VirtualSocket* can = find(fd);
  return can == nullptr ? libc::recvmsg(fd, message, flags)
                        : guarded([&] { return can->receive(*message, flags); });
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
  VirtualSocket* can = find(fd);
  return can == nullptr ? libc::sendmsg(fd, message, flags)
                        : guarded([&] { return can->send(*message, flags); });
}

ssize_t recvfrom(int fd, void* buffer, size_t size, int flags, sockaddr* address,
                 socklen_t* length) {
  VirtualSocket* can = find(fd);
  if (can == nullptr) {
    return libc::recvfrom(fd, buffer, size, flags, address, length);
  }
  iovec part{buffer, size};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_name = address;
  message.msg_namelen = address != nullptr ? *length : 0;
  const ssize_t received = guarded([&] { return can->receive(message, flags); });
  if (received >= 0 && address != nullptr) {
    *length = message.msg_namelen;
  }
  return received;
}

ssize_t sendto(int fd, const void* buffer, size_t size, int flags, const sockaddr* address,
               socklen_t length) {
  VirtualSocket* can = find(fd);
  if (can == nullptr) {
    return libc::sendto(fd, buffer, size, flags, address, length);
  }
  iovec part{const_cast<void*>(buffer), size};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_name = const_cast<sockaddr*>(address);
  message.msg_namelen = length;
  return guarded([&] { return can->send(message, flags); });
}

ssize_t recv(int fd, void* buffer, size_t size, int flags) {
  return recvfrom(fd, buffer, size, flags, nullptr, nullptr);
}

ssize_t send(int fd, const void* buffer, size_t size, int flags) {
  return sendto(fd, buffer, size, flags, nullptr, 0);
}

int poll(pollfd* fds, nfds_t count, int timeout_ms) {
  return poll_with(fds, count, [&] { return libc::poll(fds, count, timeout_ms); });
}

int ppoll(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* mask) {
  return poll_with(fds, count, [&] { return libc::ppoll(fds, count, timeout, mask); });
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* urgent, timeval* timeout) {
  for (int fd = 0; readable != nullptr && fd < count; ++fd) {
    VirtualSocket* can = FD_ISSET(fd, readable) ? find(fd) : nullptr;
    if (can != nullptr) {
      can->settle();
    }
  }
  return libc::select(count, readable, writable, urgent, timeout);
}

unsigned if_nametoindex(const char* name) noexcept {
  const auto interface = kelvara::simulation::find_interface(std::string(name));
  return interface ? static_cast<unsigned>(interface->index) : libc::if_nametoindex(name);
}

char* if_indextoname(unsigned index, char* name) noexcept {
  const auto interface = kelvara::simulation::find_interface(static_cast<int>(index));
  if (!interface) {
    return libc::if_indextoname(index, name);
  }
  std::strncpy(name, interface->name.c_str(), IF_NAMESIZE - 1);
  name[IF_NAMESIZE - 1] = '\0';
  return name;
}

// NOLINTBEGIN(bugprone-reserved-identifier): the C library's names
// Programs compiled with fortification call these; the last argument is the size of their buffer.
ssize_t __read_chk(int fd, void* buffer, size_t size, size_t /*buffer_size*/) {
  return read(fd, buffer, size);
}
ssize_t __recv_chk(int fd, void* buffer, size_t size, size_t /*buffer_size*/, int flags) {
  return recv(fd, buffer, size, flags);
}
ssize_t __recvfrom_chk(int fd, void* buffer, size_t size, size_t /*buffer_size*/, int flags,
                       sockaddr* address, socklen_t* length) {
  return recvfrom(fd, buffer, size, flags, address, length);
}
int __poll_chk(pollfd* fds, nfds_t count, int timeout_ms, size_t /*buffer_size*/) {
  return poll(fds, count, timeout_ms);
}
int __ppoll_chk(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* mask,
                size_t /*buffer_size*/) {
  return ppoll(fds, count, timeout, mask);
}

// NOLINTEND(bugprone-reserved-identifier)
}  // extern "C"
#pragma GCC visibility pop
