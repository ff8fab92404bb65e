#include "kelvara/canbus/can_socket.hpp"

#include <linux/can/raw.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>

#include "canbus/process_generation.hpp"

#include "diagnostics/line.hpp"

namespace kelvara::canbus {
namespace {

using std::chrono::microseconds;
using Clock = std::chrono::steady_clock;

constexpr microseconds kReceiveTimeout{100};
constexpr microseconds kSendTimeout{1000};
constexpr int kMicrosecondsPerSecond = 1'000'000;

ifreq make_interface_request(const std::string& interface) {
  ifreq request{};
  std::strncpy(request.ifr_name, interface.c_str(), IFNAMSIZ - 1);
  return request;
}

bool allow_fd_frames(int socket_fd) {
  const int enable = 1;
  return setsockopt(socket_fd, SOL_CAN_RAW, CAN_RAW_FD_FRAMES, &enable, sizeof(enable)) == 0;
}

/// @param option SO_RCVTIMEO or SO_SNDTIMEO.
bool limit_time(int socket_fd, int option, microseconds limit) {
  const timeval timeout{0, limit.count()};
  return setsockopt(socket_fd, SOL_SOCKET, option, &timeout, sizeof(timeout)) == 0;
}

/// bind() also succeeds on an interface that is down; only the flags show the difference. Prints
/// the reason for false on standard error.
bool is_up(int socket_fd, const std::string& interface) {
  ifreq request = make_interface_request(interface);
  if (ioctl(socket_fd, SIOCGIFFLAGS, &request) < 0) {
    diagnostics::error_line() << "ioctl(SIOCGIFFLAGS): " << std::generic_category().message(errno);
    return false;
  }
  if ((request.ifr_flags & IFF_UP) == 0) {
    diagnostics::error_line() << "CAN interface \""
                              << interface << "\" is DOWN. Did you run: sudo ip link set "
                              << interface << " up type can bitrate 1000000 ?";
    return false;
  }
  return true;
}

/// Makes a system call that a signal may interrupt; repeats it then. Fails with EAGAIN, as on a
/// time-out, when it is interrupted after `limit`.
template <typename Call>
ssize_t repeat_if_interrupted(microseconds limit, Call call) {
  const auto end = Clock::now() + limit;
  ssize_t result = call();
  while (result < 0 && errno == EINTR) {
    if (Clock::now() >= end) {
      errno = EAGAIN;
      return result;
    }
    result = call();
  }
  return result;
}

ssize_t read_from(int socket_fd, void* buffer, std::size_t size) {
  return repeat_if_interrupted(kReceiveTimeout, [&] { return read(socket_fd, buffer, size); });
}

/// The result of one select() for readability.
int select_readable(int socket_fd, int timeout_us) {
  if (socket_fd >= FD_SETSIZE) {
    // An fd_set cannot hold descriptors >= FD_SETSIZE; fall back to ppoll().
    pollfd waiting{socket_fd, POLLIN, 0};
    const timespec timeout{timeout_us / kMicrosecondsPerSecond,
                           (timeout_us % kMicrosecondsPerSecond) * 1000L};
    return ppoll(&waiting, 1, &timeout, nullptr);
  }
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(socket_fd, &readable);
  timeval timeout{timeout_us / kMicrosecondsPerSecond, timeout_us % kMicrosecondsPerSecond};
  return select(socket_fd + 1, &readable, nullptr, nullptr, &timeout);
}

}  // namespace

CANSocket::CANSocket(const std::string& interface, bool canfd)
    : interface_name(interface), canfd_enabled(canfd), process_(process_generation()) {
  if (!initialize_socket(interface)) {
    throw CANSocketException("Failed to initialize socket for interface: " + interface);
  }
  initialized = true;
}

CANSocket::~CANSocket() { cleanup(); }

bool CANSocket::initialize_socket(const std::string& interface) {
  socket_fd = socket(AF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW);
  if (socket_fd < 0) {
    return false;
  }
  if (!bind_to_interface(interface)) {
    close(socket_fd);
    socket_fd = -1;
    return false;
  }
  return true;
}

bool CANSocket::bind_to_interface(const std::string& interface) {
  ifreq request = make_interface_request(interface);
  if (ioctl(socket_fd, SIOCGIFINDEX, &request) < 0) {
    return false;
  }
  if (canfd_enabled && !allow_fd_frames(socket_fd)) {
    return false;
  }
  sockaddr_can address{};
  address.can_family = AF_CAN;
  address.can_ifindex = request.ifr_ifindex;
  if (bind(socket_fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) < 0) {
    return false;
  }
  return limit_time(socket_fd, SO_RCVTIMEO, kReceiveTimeout) &&
         limit_time(socket_fd, SO_SNDTIMEO, kSendTimeout) && is_up(socket_fd, interface);
}

void CANSocket::cleanup() {
  if (socket_fd > 0) {
    close(socket_fd);
    socket_fd = -1;
  }
}

bool CANSocket::belongs_to_this_process() const { return process_ == process_generation(); }

ssize_t CANSocket::read_raw_frame(void* buf, size_t len) {
  return can_be_read() ? read_from(socket_fd, buf, len) : -1;
}

ssize_t CANSocket::write_raw_frame(const void* buf, size_t len) {
  if (!belongs_to_this_process()) {
    return -1;
  }
  const ssize_t written =
      repeat_if_interrupted(kSendTimeout, [&] { return write(socket_fd, buf, len); });
  if (written != static_cast<ssize_t>(len)) {
    last_write_error_.store(written < 0 ? errno : EIO, std::memory_order_relaxed);
    refused_frames_.fetch_add(1, std::memory_order_relaxed);
  }
  return written;
}

bool CANSocket::read_can_frame(can_frame& frame) {
  return read_raw_frame(&frame, sizeof(frame)) == ssize_t{sizeof(frame)};
}

bool CANSocket::read_canfd_frame(canfd_frame& frame) {
  return read_raw_frame(&frame, sizeof(frame)) == ssize_t{sizeof(frame)};
}

bool CANSocket::write_can_frame(const can_frame& frame) {
  return write_raw_frame(&frame, sizeof(frame)) == ssize_t{sizeof(frame)};
}

bool CANSocket::write_canfd_frame(const canfd_frame& frame) {
  return write_raw_frame(&frame, sizeof(frame)) == ssize_t{sizeof(frame)};
}

bool CANSocket::is_data_available(int timeout_us) {
  if (!can_be_read() || socket_fd < 0) {
    return false;
  }
  const auto end = Clock::now() + microseconds(timeout_us);
  int ready = select_readable(socket_fd, timeout_us);
  while (ready < 0 && errno == EINTR) {
    const auto left = std::chrono::ceil<microseconds>(end - Clock::now());
    ready = select_readable(socket_fd, std::max(0, static_cast<int>(left.count())));
  }
  return ready > 0;
}

}  // namespace kelvara::canbus
