#include "simulation/virtual_can/virtual_socket.hpp"

#include <fcntl.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "simulation/virtual_can/real_calls.hpp"

namespace kelvara::simulation {
namespace {

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

}  // namespace

VirtualSocket::~VirtualSocket() { close_idle_end(); }

void VirtualSocket::close_idle_end() {
  if (idle_end_ >= 0) {
    real::close(idle_end_);
    idle_end_ = -1;
  }
}

int VirtualSocket::refusal(int type, int protocol) {
  constexpr int kProtocols = 8;  // CAN_NPROTO, which this system's headers do not always have
  if (protocol < 0 || protocol >= kProtocols) {
    return EINVAL;
  }
  if (protocol != CAN_RAW) {
    return EPROTONOSUPPORT;
  }
  return (type & ~(SOCK_CLOEXEC | SOCK_NONBLOCK)) == SOCK_RAW ? 0 : EPROTOTYPE;
}

bool VirtualSocket::knows_ioctl(unsigned long request) {
  return request == SIOCGIFINDEX || request == SIOCGIFNAME || request == SIOCGIFFLAGS ||
         request == SIOCGIFMTU || request == SIOCGIFHWADDR || request == FIONREAD;
}

int VirtualSocket::bind(const sockaddr* address, socklen_t length) {
  sockaddr_can wanted{};
  if (length < kAddressSize) {
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
  if (is_bound() && interface_.index == interface->index) {
    bound_index_ = wanted.can_ifindex;
    return 0;
  }
  if (state_ != nullptr && !replace_descriptor(real::socket(AF_UNIX, SOCK_SEQPACKET, 0))) {
    return fail(ENOMEM);  // a Unix socket connects only once
  }
  const sockaddr_un hub = hub_address(*interface);
  if (connect(fd_, reinterpret_cast<const sockaddr*>(&hub), sizeof(hub)) != 0) {
    return fail(ENODEV);
  }
  const int buffer_bytes = 4 << 20;
  real::setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &buffer_bytes, sizeof(buffer_bytes));
  interface_ = *interface;
  state_ = std::move(state);
  bound_index_ = wanted.can_ifindex;
  const int result = apply_options();
  // Binding to an interface that is down succeeds and leaves the error to be read.
  told_downs_ = state_->downs - (state_->up != 0U ? 0U : 1U);
  taken_marks_ = told_downs_.load();
  told_gone_ = false;
  close_idle_end();
  return result;
}

bool VirtualSocket::replace_descriptor(int replacement) {
  const int modes = fcntl(fd_, F_GETFL) & O_NONBLOCK;
  const int close_on_exec = (fcntl(fd_, F_GETFD) & FD_CLOEXEC) != 0 ? O_CLOEXEC : 0;
  for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
    timeval timeout{};
    socklen_t length = sizeof(timeout);
    real::getsockopt(fd_, SOL_SOCKET, option, &timeout, &length);
    real::setsockopt(replacement, SOL_SOCKET, option, &timeout, length);
  }
  const bool done = replacement >= 0 && fcntl(replacement, F_SETFL, modes) == 0 &&
                    dup3(replacement, fd_, close_on_exec) == fd_;
  real::close(replacement);
  return done;
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
  name.can_ifindex = is_bound() ? bound_index_ : 0;
  std::memcpy(address, &name, std::min<std::size_t>(*length, kAddressSize));
  *length = kAddressSize;
  return 0;
}

int VirtualSocket::ioctl(unsigned long request, void* argument) const {
  if (request == FIONREAD) {
    return fail(ENOTTY);
  }
  auto& wish = *static_cast<ifreq*>(argument);
  const auto interface =
      request == SIOCGIFNAME
          ? find_interface(wish.ifr_ifindex)
          : find_interface(std::string(wish.ifr_name, strnlen(wish.ifr_name, IFNAMSIZ - 1)));
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
    case SIOCGIFHWADDR:
      wish.ifr_hwaddr = {};
      wish.ifr_hwaddr.sa_family = ARPHRD_CAN;
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
      options_.error_mask = static_cast<std::uint32_t>(flag) & CAN_ERR_MASK;
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

int VirtualSocket::getsockopt(int level, int name, void* value, socklen_t* length, bool& handled) {
  handled = level == SOL_CAN_RAW ||
            (level == SOL_SOCKET && (name == SO_ERROR || name == SO_TYPE || name == SO_DOMAIN));
  if (!handled) {
    return 0;
  }
  if (level == SOL_SOCKET) {
    const int answer = name == SO_ERROR ? take_error() : name == SO_TYPE ? SOCK_RAW : AF_CAN;
    *length = std::min<socklen_t>(*length, sizeof(answer));
    std::memcpy(value, &answer, *length);
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

}  // namespace kelvara::simulation
