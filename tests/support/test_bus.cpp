#include "support/test_bus.hpp"

#include <linux/can/raw.h>
#include <net/if.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <stdexcept>

namespace {

void require(bool done, const char* what) {
  if (!done) {
    throw std::runtime_error(std::string("test bus: ") + what + " failed");
  }
}

}  // namespace

TestBus::TestBus() {
  std::string name = (std::filesystem::temp_directory_path() / "kelvara-bus-XXXXXX").string();
  require(mkdtemp(name.data()) != nullptr, "mkdtemp");
  directory_ = name;
  setenv("KELVARA_VIRTUAL_CAN_DIR", directory_.c_str(), 1);
  interface_ = make_interface(kInterface);
}

TestBus::~TestBus() {
  interface_.reset();
  std::filesystem::remove_all(directory_);
}

std::ostream& operator<<(std::ostream& out, const BusFrame& frame) {
  return out << std::hex << std::uppercase << std::setfill('0') << std::setw(3) << frame.id
             << std::dec << (frame.fd ? "##" : "#") << frame.data;
}

BusFrame parse_frame(const std::string& text, bool fd) {
  const std::size_t hash = text.find('#');
  return {static_cast<std::uint32_t>(std::stoul(text.substr(0, hash), nullptr, 16)),
          text.substr(hash + 1), fd};
}

BusPeer::BusPeer(bool fd) : socket_(::socket(AF_CAN, SOCK_RAW, CAN_RAW)) {
  require(socket_ >= 0, "socket");
  ifreq request{};
  std::strcpy(request.ifr_name, TestBus::kInterface);
  require(ioctl(socket_, SIOCGIFINDEX, &request) == 0, "SIOCGIFINDEX");
  sockaddr_can address{};
  address.can_family = AF_CAN;
  address.can_ifindex = request.ifr_ifindex;
  const int enable = fd ? 1 : 0;
  require(setsockopt(socket_, SOL_CAN_RAW, CAN_RAW_FD_FRAMES, &enable, sizeof(enable)) == 0,
          "setsockopt");
  require(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0, "bind");
}

BusPeer::~BusPeer() { close(socket_); }

canfd_frame to_raw(const BusFrame& frame) {
  canfd_frame raw{};
  raw.can_id = frame.id;
  raw.len = static_cast<std::uint8_t>(frame.data.size() / 2);
  for (std::size_t i = 0; i < raw.len; ++i) {
    raw.data[i] = static_cast<std::uint8_t>(std::stoul(frame.data.substr(2 * i, 2), nullptr, 16));
  }
  return raw;
}

void BusPeer::send(const BusFrame& frame) const {
  const canfd_frame raw = to_raw(frame);
  const std::size_t size = frame.fd ? CANFD_MTU : CAN_MTU;
  require(write(socket_, &raw, size) == static_cast<ssize_t>(size), "write");
}

std::vector<BusFrame> BusPeer::receive(std::chrono::milliseconds quiet) {
  std::vector<BusFrame> frames;
  pollfd waiting{socket_, POLLIN, 0};
  while (poll(&waiting, 1, static_cast<int>(quiet.count())) > 0) {
    canfd_frame raw{};
    const ssize_t size = read(socket_, &raw, sizeof(raw));
    if (size < 0) {
      break;
    }
    std::ostringstream data;
    data << std::hex << std::uppercase << std::setfill('0');
    for (std::size_t i = 0; i < raw.len; ++i) {
      data << std::setw(2) << static_cast<int>(raw.data[i]);
    }
    frames.push_back({raw.can_id, data.str(), size == CANFD_MTU});
  }
  return frames;
}
