#pragma once

#include <linux/can.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <thread>

/// Monotonic time, ns.
inline std::int64_t now_ns() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

/// Listens on a bus, on a thread, for commands that move a joint motor.
class MotionWitness {
 public:
  explicit MotionWitness(const std::string& interface)
      : socket_(socket(AF_CAN, SOCK_RAW, CAN_RAW)) {
    sockaddr_can address{};
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    const timeval timeout{0, 10'000};
    if (setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout)) != 0 ||
        bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
      throw std::runtime_error("cannot listen on " + interface);
    }
    thread_ = std::thread([this] { listen(); });
  }
  ~MotionWitness() {
    stop_ = true;
    thread_.join();
    close(socket_);
  }
  MotionWitness(const MotionWitness&) = delete;
  MotionWitness& operator=(const MotionWitness&) = delete;

  std::int64_t last_motion_ns() const { return last_motion_ns_; }

 private:
  void listen() {
    while (!stop_) {
      can_frame frame{};
      if (read(socket_, &frame, sizeof(frame)) != sizeof(frame)) {
        continue;
      }
      const bool special =
          frame.can_dlc == 8 &&
          std::all_of(frame.data, frame.data + 7, [](auto byte) { return byte == 0xFF; });
      if (frame.can_id >= 1 && frame.can_id <= 6 && !special) {
        last_motion_ns_ = now_ns();
      }
    }
  }

  int socket_;
  std::atomic<std::int64_t> last_motion_ns_{0};
  std::atomic<bool> stop_{false};
  std::thread thread_;
};
