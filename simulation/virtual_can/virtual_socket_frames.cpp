// Sending and receiving frames, and reporting changes of the interface.

#include <linux/can/raw.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "simulation/virtual_can/libc_calls.hpp"
#include "simulation/virtual_can/virtual_socket.hpp"

namespace kelvara::simulation {
namespace {

constexpr std::size_t kMaxUserParts = 8;

int fail(int error) {
  errno = error;
  return -1;
}

/// Copies a frame out of the caller's buffers; returns its size, or 0 when it is too long.
std::size_t gather(const msghdr& message, canfd_frame& frame) {
  std::size_t size = 0;
  for (std::size_t i = 0; i < message.msg_iovlen; ++i) {
    const iovec& part = message.msg_iov[i];
    if (size + part.iov_len > sizeof(frame)) {
      return 0;
    }
    std::memcpy(reinterpret_cast<char*>(&frame) + size, part.iov_base, part.iov_len);
    size += part.iov_len;
  }
  return size;
}

/// Replaces `index` by the message's destination, if it names one; false for a bad address.
bool read_destination(const msghdr& message, int& index) {
  if (message.msg_name == nullptr) {
    return true;
  }
  sockaddr_can address{};
  std::memcpy(&address, message.msg_name,
              std::min<std::size_t>(message.msg_namelen, sizeof(address)));
  index = address.can_ifindex;
  return message.msg_namelen >= kAddressSize && address.can_family == AF_CAN;
}

/// Writes the interface that the frame came from, if the caller asked for an address.
void write_source(msghdr& message, int index) {
  if (message.msg_name == nullptr) {
    return;
  }
  sockaddr_can source{};
  source.can_family = AF_CAN;
  source.can_ifindex = index;
  std::memcpy(message.msg_name, &source, std::min<std::size_t>(message.msg_namelen, kAddressSize));
  message.msg_namelen = kAddressSize;
}

/// Whether this write is one that must fail with ENOBUFS.
bool take_failing_write(InterfaceState& state) {
  std::uint32_t failing = state.failing_writes;
  while (failing != 0U) {
    if (state.failing_writes.compare_exchange_weak(failing, failing - 1)) {
      return true;
    }
  }
  return false;
}

}  // namespace

// ---- The interface's state ------------------------------------------------

int VirtualSocket::take_error() {
  if (state_ == nullptr) {
    return 0;
  }
  if (state_->gone != 0U) {
    options_.filter_count = 0;  // the kernel drops them with the interface
    return reported_gone_.exchange(true) ? 0 : ENODEV;
  }
  std::uint32_t reported = reported_downs_;
  const std::uint32_t downs = state_->downs;
  return reported != downs && reported_downs_.compare_exchange_strong(reported, downs) ? ENETDOWN
                                                                                       : 0;
}

void VirtualSocket::go_idle() {
  std::array<int, 2> ends{};
  if (idle_end_ < 0 && socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) == 0) {
    idle_end_ = ends[1];
    replace_descriptor(ends[0]);
  }
}

bool VirtualSocket::is_frame(const PacketHeader& header, ssize_t size, int flags) {
  if (size == 0) {
    state_->gone = 1;
    go_idle();
    return false;
  }
  if (header.kind == PacketKind::kMark) {
    if ((flags & MSG_PEEK) != 0) {
      libc::recvfrom(fd_, nullptr, 0, MSG_DONTWAIT, nullptr, nullptr);
    }
    ++taken_marks_;
    return false;
  }
  return true;
}

void VirtualSocket::settle() {
  PacketHeader header;
  while (state_ != nullptr &&
         (reported_downs_ != taken_marks_ || (reported_gone_ && idle_end_ < 0))) {
    constexpr int kPeek = MSG_PEEK | MSG_DONTWAIT;
    const ssize_t size = libc::recvfrom(fd_, &header, sizeof(header), kPeek, nullptr, nullptr);
    if (size < 0 || is_frame(header, size, kPeek)) {
      return;
    }
  }
}

short VirtualSocket::poll_result(short found) const {
  if (state_ == nullptr) {
    return static_cast<short>(found & ~POLLHUP);
  }
  const std::uint32_t marks = state_->downs - taken_marks_;
  if (marks == 0 && state_->gone == 0U) {
    return found;
  }
  int waiting = 0;  // bytes
  libc::ioctl(fd_, FIONREAD, &waiting);
  if (static_cast<std::size_t>(waiting) <= marks * sizeof(PacketHeader)) {
    found = static_cast<short>(found & ~(POLLIN | POLLRDNORM));
  }
  const bool error = state_->gone != 0U ? !reported_gone_ : reported_downs_ != state_->downs;
  return static_cast<short>((found & ~(POLLHUP | POLLRDHUP)) | (error ? POLLERR : 0));
}

// ---- Frames ---------------------------------------------------------------

void VirtualSocket::add_timestamp(msghdr& message, std::uint64_t time_ns) const {
  const auto seconds = static_cast<time_t>(time_ns / 1'000'000'000U);
  const auto rest = static_cast<long>(time_ns % 1'000'000'000U);
  const timeval microseconds{seconds, rest / 1000};
  const timespec nanoseconds{seconds, rest};
  const bool nano = timestamp_option_ == SO_TIMESTAMPNS;
  const std::size_t size = nano ? sizeof(nanoseconds) : sizeof(microseconds);
  if (message.msg_control == nullptr || message.msg_controllen < CMSG_SPACE(size)) {
    message.msg_controllen = 0;
    message.msg_flags |= MSG_CTRUNC;
    return;
  }
  cmsghdr* stamp = static_cast<cmsghdr*>(message.msg_control);
  stamp->cmsg_level = SOL_SOCKET;
  stamp->cmsg_type = timestamp_option_;
  stamp->cmsg_len = CMSG_LEN(size);
  const void* value = nano ? static_cast<const void*>(&nanoseconds) : &microseconds;
  std::memcpy(CMSG_DATA(stamp), value, size);
  message.msg_controllen = CMSG_SPACE(size);
}

ssize_t VirtualSocket::receive(msghdr& message, int flags) {
  if (state_ == nullptr) {
    return fail(EAGAIN);  // nothing ever arrives at a socket that was never bound
  }
  if (message.msg_iovlen > kMaxUserParts) {
    return fail(EMSGSIZE);
  }
  PacketHeader header;
  std::array<iovec, kMaxUserParts + 1> parts{{{&header, sizeof(header)}}};
  std::copy_n(message.msg_iov, message.msg_iovlen, parts.begin() + 1);
  msghdr packet{};
  packet.msg_iov = parts.data();
  packet.msg_iovlen = message.msg_iovlen + 1;
  ssize_t size = 0;
  do {
    if (const int error = take_error()) {
      return fail(error);
    }
    size = libc::recvmsg(fd_, &packet, flags & ~MSG_TRUNC);
    if (size < 0) {
      return size;
    }
  } while (!is_frame(header, size, flags));
  message.msg_flags = (packet.msg_flags & MSG_TRUNC) | MSG_DONTROUTE |
                      (header.kind == PacketKind::kOwnFrame ? MSG_CONFIRM : 0);
  write_source(message, interface_.index);
  if (timestamp_option_ != 0) {
    add_timestamp(message, header.time_ns);
  } else {
    message.msg_controllen = 0;
  }
  return size - ssize_t{sizeof(header)};
}

int VirtualSocket::check_frame(std::size_t size, int destination) const {
  const bool is_fd = size == CANFD_MTU;
  if (size != CAN_MTU && !is_fd) {
    return EINVAL;
  }
  if (!is_bound() || destination != interface_.index) {
    return ENXIO;
  }
  return is_fd && (options_.fd_frames == 0U || state_->mtu != CANFD_MTU) ? EINVAL : 0;
}

int VirtualSocket::take_write_error(const canfd_frame& frame, std::size_t size) {
  if (const int error = take_error()) {
    return error;
  }
  if (frame.len > (size == CANFD_MTU ? CANFD_MAX_DLEN : CAN_MAX_DLEN)) {
    return EINVAL;
  }
  if (state_->up == 0U) {
    return ENETDOWN;
  }
  return take_failing_write(*state_) ? ENOBUFS : 0;
}

ssize_t VirtualSocket::send(const msghdr& message, int flags) {
  canfd_frame frame{};
  const std::size_t size = gather(message, frame);
  int destination = bound_index_;
  const bool good_address = read_destination(message, destination);
  int error = good_address ? check_frame(size, destination) : EINVAL;
  error = error == 0 ? take_write_error(frame, size) : error;
  if (error != 0) {
    return fail(error);
  }
  if (size == CANFD_MTU) {
    frame.flags |= CANFD_FDF;
  }
  const ssize_t sent = libc::sendto(fd_, &frame, size, flags | MSG_NOSIGNAL, nullptr, 0);
  if (sent < 0 && (errno == EPIPE || errno == ECONNRESET)) {
    state_->gone = 1;
    return fail(ENXIO);
  }
  return sent;
}

}  // namespace kelvara::simulation
