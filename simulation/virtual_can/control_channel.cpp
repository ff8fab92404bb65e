#include "simulation/virtual_can/control_channel.hpp"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kelvara::simulation {
namespace {

/// A packet's buffers for one part of data and one descriptor.
struct Packet {
  Packet(void* data, std::size_t size) : part{data, size} {
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control.data();
    header.msg_controllen = control.size();
  }
  Packet(const Packet&) = delete;
  Packet& operator=(const Packet&) = delete;

  void attach(int fd) {
    cmsghdr* rights = CMSG_FIRSTHDR(&header);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof(fd));
    std::memcpy(CMSG_DATA(rights), &fd, sizeof(fd));
  }
  Descriptor attached() const {
    const cmsghdr* rights = CMSG_FIRSTHDR(&header);
    int fd = -1;
    if (rights != nullptr && rights->cmsg_type == SCM_RIGHTS) {
      std::memcpy(&fd, CMSG_DATA(rights), sizeof(fd));
    }
    return Descriptor(fd);
  }

  iovec part;
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
  msghdr header{};
};

}  // namespace

bool request_and_wait(int socket_fd, const ControlMessage& message) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    return false;
  }
  const Descriptor read_end(ends[0]);
  Descriptor write_end(ends[1]);
  Packet packet(const_cast<ControlMessage*>(&message), sizeof(message));
  packet.attach(write_end.get());
  const bool sent =
      libc::sendmsg(socket_fd, &packet.header, MSG_NOSIGNAL) == ssize_t{sizeof(message)};
  write_end.reset();  // the hub's is now the only one
  char byte = 0;
  ssize_t size = 0;
  do {
    size = sent ? libc::read(read_end.get(), &byte, 1) : 0;
  } while (size < 0 && errno == EINTR);
  return size == 1;
}

bool request_of_hub(const InterfaceName& interface, Request request) {
  const Descriptor connection(libc::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (connection.get() < 0) {
    return false;
  }
  const sockaddr_un address = hub_address(interface);
  ControlMessage message;
  message.request = request;
  return connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ==
             0 &&
         request_and_wait(connection.get(), message);
}

ControlMessage Received::control() const {
  ControlMessage message;
  std::memcpy(static_cast<void*>(&message), bytes.data(), sizeof(message));
  return message;
}

Arrival receive_message(int fd, Received& message) {
  Packet packet(message.bytes.data(), message.bytes.size());
  ssize_t size = 0;
  do {
    // A peer that closed with unread packets gives ECONNRESET once; what it sent comes after that.
    size = libc::recvmsg(fd, &packet.header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  } while (size < 0 && errno == ECONNRESET);
  if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
    return Arrival::kNothing;
  }
  if (size <= 0) {
    return Arrival::kEnd;
  }
  message.size = static_cast<std::size_t>(size);
  message.acknowledgement = packet.attached();
  return Arrival::kMessage;
}

void acknowledge(const Received& message) {
  const char done = 1;
  if (libc::write(message.acknowledgement.get(), &done, 1) != 1) {
    return;  // the requester no longer waits
  }
}

}  // namespace kelvara::simulation
