#pragma once

#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>

/// The C library's own definitions of the calls that the virtual bus replaces.
namespace kelvara::simulation::libc {

int socket(int domain, int type, int protocol);
int bind(int fd, const sockaddr* address, socklen_t length);
int close(int fd);
int ioctl(int fd, unsigned long code, void* argument);
int setsockopt(int fd, int level, int name, const void* value, socklen_t length);
int getsockopt(int fd, int level, int name, void* value, socklen_t* length);
int getsockname(int fd, sockaddr* address, socklen_t* length);
ssize_t read(int fd, void* buffer, size_t size);
ssize_t write(int fd, const void* buffer, size_t size);
ssize_t recvfrom(int fd, void* buffer, size_t size, int flags, sockaddr* address,
                 socklen_t* length);
ssize_t sendto(int fd, const void* buffer, size_t size, int flags, const sockaddr* address,
               socklen_t length);
ssize_t recvmsg(int fd, msghdr* message, int flags);
ssize_t sendmsg(int fd, const msghdr* message, int flags);
int poll(pollfd* fds, nfds_t count, int timeout_ms);
int ppoll(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* mask);
int select(int count, fd_set* readable, fd_set* writable, fd_set* urgent, timeval* timeout);
unsigned if_nametoindex(const char* name);
char* if_indextoname(unsigned index, char* name);

}  // namespace kelvara::simulation::libc
