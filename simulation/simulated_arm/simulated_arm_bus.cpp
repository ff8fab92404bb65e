#include "simulation/simulated_arm/simulated_arm_bus.hpp"

#include <linux/can/raw.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <random>
#include <stdexcept>

#include "simulation/simulated_arm/motor_facts.hpp"

namespace kelvara::simulation {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kProbeTime{50};
constexpr int kMaxFramesAtOnce = 256;

// A refresh of the first motor. Motors ignore what follows byte 2: byte 3 distinguishes another
// arm's probe from a controller's request, and the last four bytes are that arm's random ticket.
constexpr canid_t kProbeId = 0x7FF;
constexpr std::array<std::uint8_t, 4> kProbe{kMotors[0].can_id, 0x00, 0xCC, 0xA5};
constexpr canid_t kProbeAnswerId = kMotors[0].master_id;

canfd_frame probe(std::uint32_t ticket) {
  canfd_frame frame{};
  frame.can_id = kProbeId;
  frame.len = 8;
  std::copy(kProbe.begin(), kProbe.end(), frame.data);
  std::memcpy(frame.data + kProbe.size(), &ticket, sizeof(ticket));
  return frame;
}

/// The ticket in a probe; no value for other frames.
std::optional<std::uint32_t> ticket_of(const canfd_frame& frame) {
  if (frame.can_id != kProbeId || frame.len != 8 ||
      !std::equal(kProbe.begin(), kProbe.end(), frame.data)) {
    return std::nullopt;
  }
  std::uint32_t ticket = 0;
  std::memcpy(&ticket, frame.data + kProbe.size(), sizeof(ticket));
  return ticket;
}

}  // namespace

SimulatedArmBus::SimulatedArmBus(SimulatedArm& arm, const std::string& interface, bool fd)
    : arm_(arm), fd_frames_(fd) {
  replies_.reserve(16);
  commands_.reserve(16);
  try {
    open_socket(interface);
    refuse_second_arm(interface);
  } catch (...) {
    if (socket_ >= 0) {
      close(socket_);
    }
    throw;
  }
}

SimulatedArmBus::~SimulatedArmBus() { close(socket_); }

void SimulatedArmBus::open_socket(const std::string& interface) {
  socket_ = socket(AF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW);
  if (socket_ < 0) {
    throw std::runtime_error(
        "this kernel has no SocketCAN; run the program through scripts/with-virtual-can");
  }
  ifreq request{};
  std::strncpy(request.ifr_name, interface.c_str(), IFNAMSIZ - 1);
  if (ioctl(socket_, SIOCGIFINDEX, &request) != 0) {
    throw std::runtime_error("there is no interface " + interface);
  }
  sockaddr_can address{};
  address.can_family = AF_CAN;
  address.can_ifindex = request.ifr_ifindex;
  const int enable = 1;
  if (setsockopt(socket_, SOL_CAN_RAW, CAN_RAW_FD_FRAMES, &enable, sizeof(enable)) != 0 ||
      bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
    throw std::runtime_error("cannot use interface " + interface);
  }
  if (ioctl(socket_, SIOCGIFFLAGS, &request) != 0 || (request.ifr_flags & IFF_UP) == 0) {
    throw std::runtime_error("interface " + interface + " is down");
  }
}

void SimulatedArmBus::refuse_second_arm(const std::string& interface) {
  const std::uint32_t own_ticket = std::random_device{}();
  send(probe(own_ticket));
  const auto end = Clock::now() + kProbeTime;
  canfd_frame frame{};
  while (Clock::now() < end) {
    if (!wait_readable(end - Clock::now()) ||
        recv(socket_, &frame, sizeof(frame), MSG_DONTWAIT) <= 0) {
      continue;
    }
    // If two simulated arms start at once, the lower ticket wins; the other sees the ticket, or the
    // winner's answer, and exits.
    const std::optional<std::uint32_t> ticket = ticket_of(frame);
    if (frame.can_id == kProbeAnswerId || (ticket && *ticket <= own_ticket)) {
      throw std::runtime_error("interface " + interface + " is busy: an arm answers there already");
    }
    if (ticket) {
      answer(frame);
    }
  }
}

bool SimulatedArmBus::wait_readable(std::chrono::nanoseconds timeout) const {
  const auto wait = std::max(timeout, std::chrono::nanoseconds::zero());
  const timespec time{wait / std::chrono::seconds(1), (wait % std::chrono::seconds(1)).count()};
  pollfd waiting{socket_, POLLIN, 0};
  return ppoll(&waiting, 1, &time, nullptr) > 0;
}

void SimulatedArmBus::send(const canfd_frame& frame) {
  canfd_frame out = frame;
  ssize_t sent = 0;
  if (fd_frames_) {
    out.flags = CANFD_BRS;
    sent = write(socket_, &out, CANFD_MTU);
  } else {
    sent = write(socket_, &out, CAN_MTU);  // the first sixteen bytes are a classic frame
  }
  static_cast<void>(sent);  // a frame that finds the queue full is lost, as on a wire
}

void SimulatedArmBus::receive(const canfd_frame& frame) {
  commands_.assign(1, frame);
  if (change_commands_) {
    change_commands_(commands_);
  }
  for (const canfd_frame& command : commands_) {
    answer(command);
  }
}

void SimulatedArmBus::answer(const canfd_frame& frame) {
  replies_.clear();
  arm_.receive(frame, replies_);
  if (change_replies_) {
    change_replies_(replies_);
  }
  for (const canfd_frame& reply : replies_) {
    send(reply);
  }
}

int SimulatedArmBus::handle_frames(std::chrono::nanoseconds timeout) {
  if (!wait_readable(timeout)) {
    return 0;
  }
  int handled = 0;
  canfd_frame frame{};
  // Bounded, so that a flood of frames does not stop the physics.
  while (handled < kMaxFramesAtOnce && recv(socket_, &frame, sizeof(frame), MSG_DONTWAIT) > 0) {
    receive(frame);
    frame = {};
    ++handled;
  }
  if (handled == 0 && errno == ENODEV) {
    throw std::runtime_error("the interface is gone");
  }
  return handled;
}

}  // namespace kelvara::simulation
