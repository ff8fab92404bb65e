#pragma once

#include <linux/can.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// Creates a CAN interface that is up and removes it on destruction.
class CanInterface {
 public:
  CanInterface() = default;
  virtual ~CanInterface() = default;
  CanInterface(const CanInterface&) = delete;
  CanInterface& operator=(const CanInterface&) = delete;

  virtual void set_up(bool up) = 0;
  /// While its queue is full every write fails with ENOBUFS.
  virtual void set_queue_full(bool full) = 0;
  /// While nothing leaves its queue a write blocks once the send buffer of its socket is full.
  virtual void set_queue_stopped(bool stopped) = 0;
};

/// Creates a virtual interface, or one of the kernel's in programs linked with test_bus_kernel.cpp
/// instead of test_bus_virtual.cpp.
std::unique_ptr<CanInterface> make_interface(const std::string& name, int mtu = CANFD_MTU);

/// An interface used by one test alone; a virtual one has its own runtime directory.
class TestBus {
 public:
  static constexpr const char* kInterface = "can0";

  TestBus();
  ~TestBus();
  TestBus(const TestBus&) = delete;
  TestBus& operator=(const TestBus&) = delete;

  CanInterface& interface() { return *interface_; }
  void remove_interface() { interface_.reset(); }

 private:
  std::string directory_;
  std::unique_ptr<CanInterface> interface_;
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

/// The frame as sockets carry it; a classic one takes the first sixteen bytes.
canfd_frame to_raw(const BusFrame& frame);

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
  /// Receives frames until the bus has been quiet for the given time.
  std::vector<BusFrame> receive(std::chrono::milliseconds quiet = std::chrono::milliseconds(30));

 private:
  int socket_;
};
