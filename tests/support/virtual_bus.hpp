#pragma once

#include <linux/can.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "simulation/virtual_can/virtual_can_hub.hpp"

/// A virtual interface of a test's own, in a runtime directory of its own.
class VirtualBus {
 public:
  static constexpr const char* kInterface = "can0";

  explicit VirtualBus(int mtu = CANFD_MTU);
  ~VirtualBus();
  VirtualBus(const VirtualBus&) = delete;
  VirtualBus& operator=(const VirtualBus&) = delete;

  kelvara::simulation::VirtualCanHub& hub() { return *hub_; }
  void remove_interface() { hub_.reset(); }

 private:
  std::string directory_;
  std::unique_ptr<kelvara::simulation::VirtualCanHub> hub_;
};

/// One frame as a test writes it: the identifier and the data as hex digits.
struct BusFrame {
  std::uint32_t id = 0;
  std::string data;
  bool fd = false;

  bool operator==(const BusFrame&) const = default;
};
std::ostream& operator<<(std::ostream& out, const BusFrame& frame);

/// "001#FFFFFFFFFFFFFFFC" as candump writes it.
BusFrame parse_frame(const std::string& text, bool fd = false);

/// A plain socket on the bus, beside the code under test.
class BusPeer {
 public:
  /// @param fd Takes CAN-FD frames as well.
  explicit BusPeer(bool fd = true);
  ~BusPeer();
  BusPeer(const BusPeer&) = delete;
  BusPeer& operator=(const BusPeer&) = delete;

  int socket() const { return socket_; }
  void send(const BusFrame& frame) const;
  /// All frames that come until the bus has been quiet for the given time.
  std::vector<BusFrame> receive(std::chrono::milliseconds quiet = std::chrono::milliseconds(30));

 private:
  int socket_;
};
