#include "simulation/virtual_can/virtual_socket.hpp"

#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "simulation/virtual_can/real_calls.hpp"

namespace kelvara::simulation {
namespace {

constexpr std::size_t kMaxUserParts = 8;

int fail(int error) {
  errno = error;
  return -1;
}

std::optional<InterfaceName> interface_to_bind(int index) {
  if (index != 0) {
    return find_interface(index);
  }
  // "Any interface" is the one there is; a socket on several at once is not offered.
  std::vector<InterfaceName> interfaces = list_interfaces();
  return interfaces.size() == 1 ? std::optional(interfaces.front()) : std::nullopt;
}

/// Copies a frame out of the caller's parts; its size, or 0 when it cannot be a frame.
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

}  // namespace

// ---- Set-up ---------------------------------------------------------------

int VirtualSocket::bind(const sockaddr* address, socklen_t length) {
  constexpr socklen_t kShortest = offsetof(sockaddr_can, can_addr);
  sockaddr_can wanted{};
  if (length < kShortest || is_bound()) {
    return fail(EINVAL);
  }
  std::memcpy(&wanted, address, std::min<std::size_t>(length, sizeof(wanted)));
  if (wanted.can_family != AF_CAN) {
    return fail(EINVAL);
  }
  const auto interface = interface_to_bind(wanted.can_ifindex);
  auto state = interface ? map_state(*interface) : nullptr;
  if (!state) {
    return fail(ENODEV);
  }
  const sockaddr_un hub = hub_address(*interface);
  if (connect(fd_, reinterpret_cast<const sockaddr*>(&hub), sizeof(hub)) != 0) {
    return fail(ENODEV);
  }
  const int buffer_bytes = 4 << 20;
  real::setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &buffer_bytes, sizeof(buffer_bytes));
  interface_ = *interface;
  state_ = std::move(state);
  return apply_options();
}

int VirtualSocket::apply_options() {
  if (!is_bound()) {
    return 0;
  }
  ControlMessage message;
  message.options = options_;
  return request_and_wait(fd_, message) ? 0 : fail(ENODEV);
}

int VirtualSocket::getsockname(sockaddr* address, socklen_t* length) const {
  sockaddr_can name{};
  name.can_family = AF_CAN;
  name.can_ifindex = interface_.index;
  std::memcpy(address, &name, std::min<std::size_t>(*length, sizeof(name)));
  *length = sizeof(name);
  return 0;
}

int VirtualSocket::ioctl(unsigned long request, void* argument) const {
  auto& wish = *static_cast<ifreq*>(argument);
  const auto interface =
      request == SIOCGIFNAME
          ? find_interface(wish.ifr_ifindex)
          : find_interface(std::string(wish.ifr_name, strnlen(wish.ifr_name, IFNAMSIZ)));
  const auto state = interface ? map_state(*interface) : nullptr;
  if (!state) {
    return fail(ENODEV);
  }
  switch (request) {
    case SIOCGIFNAME:
      std::strncpy(wish.ifr_name, interface->name.c_str(), IFNAMSIZ - 1);
      wish.ifr_name[IFNAMSIZ - 1] = '\0';
      return 0;
    case SIOCGIFINDEX:
      wish.ifr_ifindex = interface->index;
      return 0;
    case SIOCGIFMTU:
      wish.ifr_mtu = static_cast<int>(state->mtu);
      return 0;
    default:  // SIOCGIFFLAGS
      wish.ifr_flags = IFF_NOARP;
      if (state->up != 0U) {
        wish.ifr_flags |= IFF_UP | IFF_RUNNING;
      }
      return 0;
  }
}

int VirtualSocket::set_filters(const void* value, socklen_t length) {
  const std::size_t count = length / sizeof(can_filter);
  if (length % sizeof(can_filter) != 0 || count > kMaxFilters) {
    return fail(EINVAL);
  }
  std::copy_n(static_cast<const can_filter*>(value), count, options_.filters.begin());
  options_.filter_count = static_cast<std::uint32_t>(count);
  return apply_options();
}

int VirtualSocket::set_flag(int level, int name, const void* value, socklen_t length,
                            bool& handled) {
  int flag = 0;
  if (length != sizeof(flag)) {
    return fail(EINVAL);
  }
  std::memcpy(&flag, value, sizeof(flag));
  if (level == SOL_SOCKET) {
    timestamp_option_ = flag != 0 ? name : 0;
    return 0;
  }
  switch (name) {
    case CAN_RAW_ERR_FILTER:
      options_.error_mask = static_cast<std::uint32_t>(flag);
      return apply_options();
    case CAN_RAW_LOOPBACK:
      options_.loopback = flag != 0 ? 1 : 0;
      return apply_options();
    case CAN_RAW_RECV_OWN_MSGS:
      options_.receive_own = flag != 0 ? 1 : 0;
      return apply_options();
    case CAN_RAW_FD_FRAMES:
      options_.fd_frames = flag != 0 ? 1 : 0;
      return apply_options();
    case CAN_RAW_JOIN_FILTERS:
      options_.join_filters = flag != 0 ? 1 : 0;
      return apply_options();
    default:
      handled = true;
      return fail(ENOPROTOOPT);
  }
}

int VirtualSocket::setsockopt(int level, int name, const void* value, socklen_t length,
                              bool& handled) {
  handled = level == SOL_CAN_RAW ||
            (level == SOL_SOCKET && (name == SO_TIMESTAMP || name == SO_TIMESTAMPNS));
  if (!handled) {
    return 0;
  }
  if (level == SOL_CAN_RAW && name == CAN_RAW_FILTER) {
    return set_filters(value, length);
  }
  return set_flag(level, name, value, length, handled);
}

int VirtualSocket::getsockopt(int level, int name, void* value, socklen_t* length,
                              bool& handled) const {
  handled = level == SOL_CAN_RAW;
  if (!handled) {
    return 0;
  }
  if (name == CAN_RAW_FILTER) {
    const std::size_t size = options_.filter_count * sizeof(can_filter);
    if (*length < size) {
      *length = static_cast<socklen_t>(size);
      return fail(ERANGE);
    }
    std::memcpy(value, options_.filters.data(), size);
    *length = static_cast<socklen_t>(size);
    return 0;
  }
  std::uint32_t flag = 0;
  switch (name) {
    case CAN_RAW_ERR_FILTER:
      flag = options_.error_mask;
      break;
    case CAN_RAW_LOOPBACK:
      flag = options_.loopback;
      break;
    case CAN_RAW_RECV_OWN_MSGS:
      flag = options_.receive_own;
      break;
    case CAN_RAW_FD_FRAMES:
      flag = options_.fd_frames;
      break;
    case CAN_RAW_JOIN_FILTERS:
      flag = options_.join_filters;
      break;
    default:
      return fail(ENOPROTOOPT);
  }
  *length = std::min<socklen_t>(*length, sizeof(flag));
  std::memcpy(value, &flag, *length);
  return 0;
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
  if (!is_bound()) {
    return fail(EAGAIN);  // nothing ever arrives at a socket that is not bound
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
  const ssize_t size = real::recvmsg(fd_, &packet, flags);
  if (size < 0) {
    return size;
  }
  if (size < ssize_t{sizeof(header)}) {
    return fail(ENODEV);  // the hub has gone, and the interface with it
  }
  if (header.kind == PacketKind::kError) {
    return fail(static_cast<int>(header.error));
  }
  message.msg_flags = (packet.msg_flags & MSG_TRUNC) | MSG_DONTROUTE |
                      (header.kind == PacketKind::kOwnFrame ? MSG_CONFIRM : 0);
  if (message.msg_name != nullptr) {
    getsockname(static_cast<sockaddr*>(message.msg_name), &message.msg_namelen);
  }
  if (timestamp_option_ != 0) {
    add_timestamp(message, header.time_ns);
  } else {
    message.msg_controllen = 0;
  }
  return size - ssize_t{sizeof(header)};
}

ssize_t VirtualSocket::send(const msghdr& message, int flags) {
  if (!is_bound()) {
    return fail(ENXIO);
  }
  canfd_frame frame{};
  const std::size_t size = gather(message, frame);
  const bool fd_allowed = options_.fd_frames != 0U && state_->mtu == CANFD_MTU;
  const bool is_fd = size == CANFD_MTU;
  if ((size != CAN_MTU && !(is_fd && fd_allowed)) ||
      frame.len > (is_fd ? CANFD_MAX_DLEN : CAN_MAX_DLEN)) {
    return fail(EINVAL);
  }
  if (is_fd) {
    frame.flags |= CANFD_FDF;
  }
  if (state_->up == 0U) {
    return fail(ENETDOWN);
  }
  std::uint32_t failing = state_->failing_writes;
  while (failing != 0U) {
    if (state_->failing_writes.compare_exchange_weak(failing, failing - 1)) {
      return fail(ENOBUFS);
    }
  }
  const ssize_t sent = real::sendto(fd_, &frame, size, flags | MSG_NOSIGNAL, nullptr, 0);
  if (sent < 0 && (errno == EPIPE || errno == ECONNRESET)) {
    return fail(ENXIO);
  }
  return sent;
}

}  // namespace kelvara::simulation
