#include "simulation/virtual_can/virtual_socket.hpp"

#include <fcntl.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "simulation/virtual_can/control_channel.hpp"
#include "simulation/virtual_can/libc_calls.hpp"
#include "simulation/virtual_can/raw_options.hpp"

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
  // "Any interface" means the only one; one socket on several interfaces is not supported.
  std::vector<InterfaceName> interfaces = list_interfaces();
  return interfaces.size() == 1 ? std::optional(interfaces.front()) : std::nullopt;
}

/// The result of an interface request (netdevice(7)).
void answer_request(unsigned long code, const InterfaceName& interface, const InterfaceState& state,
                    ifreq& request) {
  switch (code) {
    case SIOCGIFNAME:
      std::strncpy(request.ifr_name, interface.name.c_str(), IFNAMSIZ - 1);
      request.ifr_name[IFNAMSIZ - 1] = '\0';
      break;
    case SIOCGIFINDEX:
      request.ifr_ifindex = interface.index;
      break;
    case SIOCGIFMTU:
      request.ifr_mtu = static_cast<int>(state.mtu);
      break;
    case SIOCGIFHWADDR:
      request.ifr_hwaddr = {};
      request.ifr_hwaddr.sa_family = ARPHRD_CAN;
      break;
    default:  // SIOCGIFFLAGS
      request.ifr_flags = IFF_NOARP;
      if (state.up != 0U) {
        request.ifr_flags |= IFF_UP | IFF_RUNNING;
      }
  }
}

}  // namespace

VirtualSocket::~VirtualSocket() { close_idle_end(); }

void VirtualSocket::close_idle_end() {
  if (idle_end_ >= 0) {
    libc::close(idle_end_);
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

bool VirtualSocket::knows_ioctl(unsigned long code) {
  return code == SIOCGIFINDEX || code == SIOCGIFNAME || code == SIOCGIFFLAGS ||
         code == SIOCGIFMTU || code == SIOCGIFHWADDR || code == FIONREAD;
}

int VirtualSocket::bind(const sockaddr* address, socklen_t length) {
  sockaddr_can requested{};
  if (length < kAddressSize) {
    return fail(EINVAL);
  }
  std::memcpy(&requested, address, std::min<std::size_t>(length, sizeof(requested)));
  if (requested.can_family != AF_CAN) {
    return fail(EINVAL);
  }
  const auto interface = interface_to_bind(requested.can_ifindex);
  auto state = interface ? map_state(*interface) : nullptr;
  if (!state) {
    return fail(ENODEV);
  }
  const bool already_bound = is_bound() && interface_.index == interface->index;
  const int error = already_bound ? 0 : connect_to_hub(*interface);
  if (error != 0) {
    return fail(error);
  }
  bound_index_ = requested.can_ifindex;
  return already_bound ? 0 : attach(*interface, std::move(state));
}

int VirtualSocket::connect_to_hub(const InterfaceName& interface) {
  if (state_ != nullptr && !replace_descriptor(libc::socket(AF_UNIX, SOCK_SEQPACKET, 0))) {
    return ENOMEM;  // a Unix socket connects only once
  }
  const sockaddr_un hub = hub_address(interface);
  if (connect(fd_, reinterpret_cast<const sockaddr*>(&hub), sizeof(hub)) != 0) {
    return ENODEV;
  }
  const int buffer_bytes = 4 << 20;
  libc::setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &buffer_bytes, sizeof(buffer_bytes));
  return 0;
}

int VirtualSocket::attach(const InterfaceName& interface, std::shared_ptr<InterfaceState> state) {
  interface_ = interface;
  state_ = std::move(state);
  const int result = apply_options();
  // Binding to an interface that is down succeeds; the next call reports the error.
  reported_downs_ = state_->downs - (state_->up != 0U ? 0U : 1U);
  taken_marks_ = reported_downs_.load();
  reported_gone_ = false;
  close_idle_end();
  return result;
}

bool VirtualSocket::replace_descriptor(int replacement) {
  const int modes = fcntl(fd_, F_GETFL) & O_NONBLOCK;
  const int close_on_exec = (fcntl(fd_, F_GETFD) & FD_CLOEXEC) != 0 ? O_CLOEXEC : 0;
  for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
    timeval timeout{};
    socklen_t length = sizeof(timeout);
    libc::getsockopt(fd_, SOL_SOCKET, option, &timeout, &length);
    libc::setsockopt(replacement, SOL_SOCKET, option, &timeout, length);
  }
  const bool done = replacement >= 0 && fcntl(replacement, F_SETFL, modes) == 0 &&
                    dup3(replacement, fd_, close_on_exec) == fd_;
  libc::close(replacement);
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

int VirtualSocket::ioctl(unsigned long code, void* argument) const {
  if (code == FIONREAD) {
    return fail(ENOTTY);
  }
  auto& request = *static_cast<ifreq*>(argument);
  const auto interface =
      code == SIOCGIFNAME
          ? find_interface(request.ifr_ifindex)
          : find_interface(std::string(request.ifr_name, strnlen(request.ifr_name, IFNAMSIZ - 1)));
  const auto state = interface ? map_state(*interface) : nullptr;
  if (!state) {
    return fail(ENODEV);
  }
  answer_request(code, *interface, *state, request);
  return 0;
}

std::optional<int> VirtualSocket::setsockopt(int level, int name, const void* value,
                                             socklen_t length) {
  if (level == SOL_CAN_RAW) {
    const int error = set_raw_option(options_, name, value, length);
    return error != 0 ? fail(error) : apply_options();
  }
  if (level == SOL_SOCKET && (name == SO_TIMESTAMP || name == SO_TIMESTAMPNS)) {
    return set_timestamp_option(name, value, length);
  }
  return std::nullopt;
}

int VirtualSocket::set_timestamp_option(int name, const void* value, socklen_t length) {
  int flag = 0;
  if (length != sizeof(flag)) {
    return fail(EINVAL);
  }
  std::memcpy(&flag, value, sizeof(flag));
  timestamp_option_ = flag != 0 ? name : 0;
  return 0;
}

std::optional<int> VirtualSocket::getsockopt(int level, int name, void* value, socklen_t* length) {
  if (level == SOL_CAN_RAW) {
    const int error = get_raw_option(options_, name, value, length);
    return error != 0 ? fail(error) : 0;
  }
  if (level != SOL_SOCKET || (name != SO_ERROR && name != SO_TYPE && name != SO_DOMAIN)) {
    return std::nullopt;
  }
  const int answer = name == SO_ERROR ? take_error() : name == SO_TYPE ? SOCK_RAW : AF_CAN;
  *length = std::min<socklen_t>(*length, sizeof(answer));
  std::memcpy(value, &answer, *length);
  return 0;
}

}  // namespace kelvara::simulation
