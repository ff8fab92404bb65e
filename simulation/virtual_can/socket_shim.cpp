// The C library's socket calls, as a process sees them that is preloaded or linked with this
// library: raw CAN sockets are virtual, everything else passes straight on.

#include <linux/can.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <new>

#include "simulation/virtual_can/interface_directory.hpp"
#include "simulation/virtual_can/real_calls.hpp"
#include "simulation/virtual_can/virtual_socket.hpp"

namespace {

using kelvara::simulation::VirtualSocket;
namespace real = kelvara::simulation::real;

constexpr int kMaxDescriptors = 65536;
constinit std::array<std::atomic<VirtualSocket*>, kMaxDescriptors> virtual_sockets{};

VirtualSocket* find(int fd) {
  return fd >= 0 && fd < kMaxDescriptors
             ? virtual_sockets[static_cast<std::size_t>(fd)].load(std::memory_order_acquire)
             : nullptr;
}

/// Runs an operation of a virtual socket; what it throws becomes an error number, as C callers
/// expect.
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

ssize_t receive(VirtualSocket& socket, void* buffer, size_t size, int flags) {
  iovec part{buffer, size};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  return guarded([&] { return socket.receive(message, flags); });
}

ssize_t send(VirtualSocket& socket, const void* buffer, size_t size, int flags) {
  iovec part{const_cast<void*>(buffer), size};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  return guarded([&] { return socket.send(message, flags); });
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  if (domain != AF_CAN) {
    return real::socket(domain, type, protocol);
  }
  if ((type & ~(SOCK_CLOEXEC | SOCK_NONBLOCK)) != SOCK_RAW || protocol != CAN_RAW) {
    errno = EPROTONOSUPPORT;
    return -1;
  }
  const int options = type & (SOCK_CLOEXEC | SOCK_NONBLOCK);
  const int fd = real::socket(AF_UNIX, SOCK_SEQPACKET | options, 0);
  if (fd < 0) {
    return fd;
  }
  auto* created = fd < kMaxDescriptors ? new (std::nothrow) VirtualSocket(fd) : nullptr;
  if (created == nullptr) {
    real::close(fd);
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
  return real::close(fd);
}

int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
  VirtualSocket* can = find(fd);
  return can == nullptr ? real::bind(fd, address, length)
                        : guarded([&] { return can->bind(address, length); });
}

int getsockname(int fd, sockaddr* address, socklen_t* length) noexcept {
  VirtualSocket* can = find(fd);
  return can == nullptr ? real::getsockname(fd, address, length)
                        : can->getsockname(address, length);
}

int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  VirtualSocket* can = find(fd);
  const bool of_interface = request == SIOCGIFINDEX || request == SIOCGIFNAME ||
                            request == SIOCGIFFLAGS || request == SIOCGIFMTU;
  return can == nullptr || !of_interface ? real::ioctl(fd, request, argument)
                                         : guarded([&] { return can->ioctl(request, argument); });
}

int setsockopt(int fd, int level, int name, const void* value, socklen_t length) noexcept {
  if (VirtualSocket* can = find(fd)) {
    bool handled = false;
    const int result =
        guarded([&] { return can->setsockopt(level, name, value, length, handled); });
    if (handled) {
      return result;
    }
  }
  return real::setsockopt(fd, level, name, value, length);
}

int getsockopt(int fd, int level, int name, void* value, socklen_t* length) noexcept {
  if (const VirtualSocket* can = find(fd)) {
    bool handled = false;
    const int result = can->getsockopt(level, name, value, length, handled);
    if (handled) {
      return result;
    }
  }
  return real::getsockopt(fd, level, name, value, length);
}

ssize_t read(int fd, void* buffer, size_t size) {
  VirtualSocket* can = find(fd);
  return can == nullptr ? real::read(fd, buffer, size) : receive(*can, buffer, size, 0);
}

ssize_t write(int fd, const void* buffer, size_t size) {
  VirtualSocket* can = find(fd);
  return can == nullptr ? real::write(fd, buffer, size) : send(*can, buffer, size, 0);
}

ssize_t recvmsg(int fd, msghdr* message, int flags) {
  VirtualSocket* can = find(fd);
  return can == nullptr ? real::recvmsg(fd, message, flags)
                        : guarded([&] { return can->receive(*message, flags); });
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
  VirtualSocket* can = find(fd);
  return can == nullptr ? real::sendmsg(fd, message, flags)
                        : guarded([&] { return can->send(*message, flags); });
}

ssize_t recvfrom(int fd, void* buffer, size_t size, int flags, sockaddr* address,
                 socklen_t* length) {
  VirtualSocket* can = find(fd);
  if (can == nullptr) {
    return real::recvfrom(fd, buffer, size, flags, address, length);
  }
  const ssize_t received = receive(*can, buffer, size, flags);
  if (received >= 0 && address != nullptr) {
    can->getsockname(address, length);
  }
  return received;
}

ssize_t sendto(int fd, const void* buffer, size_t size, int flags, const sockaddr* address,
               socklen_t length) {
  VirtualSocket* can = find(fd);
  return can == nullptr ? real::sendto(fd, buffer, size, flags, address, length)
                        : send(*can, buffer, size, flags);
}

ssize_t recv(int fd, void* buffer, size_t size, int flags) {
  return recvfrom(fd, buffer, size, flags, nullptr, nullptr);
}

ssize_t send(int fd, const void* buffer, size_t size, int flags) {
  return sendto(fd, buffer, size, flags, nullptr, 0);
}

unsigned if_nametoindex(const char* name) noexcept {
  const auto interface = kelvara::simulation::find_interface(std::string(name));
  return interface ? static_cast<unsigned>(interface->index) : real::if_nametoindex(name);
}

char* if_indextoname(unsigned index, char* name) noexcept {
  const auto interface = kelvara::simulation::find_interface(static_cast<int>(index));
  if (!interface) {
    return real::if_indextoname(index, name);
  }
  std::strncpy(name, interface->name.c_str(), IF_NAMESIZE - 1);
  name[IF_NAMESIZE - 1] = '\0';
  return name;
}

// NOLINTBEGIN(bugprone-reserved-identifier): the C library's names
// What programs compiled with fortification call instead; the size of their buffer is given last.
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

// NOLINTEND(bugprone-reserved-identifier)
}  // extern "C"
#pragma GCC visibility pop
