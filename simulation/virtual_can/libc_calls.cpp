#include "simulation/virtual_can/libc_calls.hpp"

#include <dlfcn.h>

#include <cstdlib>

namespace kelvara::simulation::libc {
namespace {

/// The definition of a call in the libraries loaded after this one.
template <typename Function>
Function* next(const char* name) {
  void* symbol = dlsym(RTLD_NEXT, name);
  if (symbol == nullptr) {
    std::abort();
  }
  return reinterpret_cast<Function*>(symbol);
}

}  // namespace

int socket(int domain, int type, int protocol) {
  static auto* const call = next<decltype(socket)>("socket");
  return call(domain, type, protocol);
}

int bind(int fd, const sockaddr* address, socklen_t length) {
  static auto* const call = next<decltype(bind)>("bind");
  return call(fd, address, length);
}

int close(int fd) {
  static auto* const call = next<decltype(close)>("close");
  return call(fd);
}

int ioctl(int fd, unsigned long code, void* argument) {
  static auto* const call = next<int(int, unsigned long, ...)>("ioctl");
  return call(fd, code, argument);
}

int setsockopt(int fd, int level, int name, const void* value, socklen_t length) {
  static auto* const call = next<decltype(setsockopt)>("setsockopt");
  return call(fd, level, name, value, length);
}

int getsockopt(int fd, int level, int name, void* value, socklen_t* length) {
  static auto* const call = next<decltype(getsockopt)>("getsockopt");
  return call(fd, level, name, value, length);
}

int getsockname(int fd, sockaddr* address, socklen_t* length) {
  static auto* const call = next<decltype(getsockname)>("getsockname");
  return call(fd, address, length);
}

ssize_t read(int fd, void* buffer, size_t size) {
  static auto* const call = next<decltype(read)>("read");
  return call(fd, buffer, size);
}

ssize_t write(int fd, const void* buffer, size_t size) {
  static auto* const call = next<decltype(write)>("write");
  return call(fd, buffer, size);
}

ssize_t recvfrom(int fd, void* buffer, size_t size, int flags, sockaddr* address,
                 socklen_t* length) {
  static auto* const call = next<decltype(recvfrom)>("recvfrom");
  return call(fd, buffer, size, flags, address, length);
}

ssize_t sendto(int fd, const void* buffer, size_t size, int flags, const sockaddr* address,
               socklen_t length) {
  static auto* const call = next<decltype(sendto)>("sendto");
  return call(fd, buffer, size, flags, address, length);
}

ssize_t recvmsg(int fd, msghdr* message, int flags) {
  static auto* const call = next<decltype(recvmsg)>("recvmsg");
  return call(fd, message, flags);
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
  static auto* const call = next<decltype(sendmsg)>("sendmsg");
  return call(fd, message, flags);
}

int poll(pollfd* fds, nfds_t count, int timeout_ms) {
  static auto* const call = next<decltype(poll)>("poll");
  return call(fds, count, timeout_ms);
}

int ppoll(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* mask) {
  static auto* const call = next<decltype(ppoll)>("ppoll");
  return call(fds, count, timeout, mask);
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* urgent, timeval* timeout) {
  static auto* const call = next<decltype(select)>("select");
  return call(count, readable, writable, urgent, timeout);
}

unsigned if_nametoindex(const char* name) {
  static auto* const call = next<decltype(if_nametoindex)>("if_nametoindex");
  return call(name);
}

char* if_indextoname(unsigned index, char* name) {
  static auto* const call = next<decltype(if_indextoname)>("if_indextoname");
  return call(index, name);
}

}  // namespace kelvara::simulation::libc
