#pragma once

#include <linux/can.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include <gtest/gtest.h>

#include "support/test_bus.hpp"

/// Plain socket calls, as any SocketCAN program makes them. The tests hold on the kernel's own
/// interfaces and on virtual ones alike.
struct BusBehaviour : ::testing::Test {
  template <typename Value>
  static int set(const BusPeer& peer, int option, const Value& value) {
    return setsockopt(peer.socket(), SOL_CAN_RAW, option, &value, sizeof(value));
  }

  /// The error that a write of so many bytes gives, 0 when they are sent.
  static int write_error(const BusPeer& peer, const canfd_frame& frame, std::size_t size) {
    return write(peer.socket(), &frame, size) == static_cast<ssize_t>(size) ? 0 : errno;
  }

  /// The error that the next read gives, 0 when it gives a frame.
  static int read_error(const BusPeer& peer) {
    canfd_frame frame{};
    return recv(peer.socket(), &frame, sizeof(frame), MSG_DONTWAIT) > 0 ? 0 : errno;
  }

  static int poll_events(const BusPeer& peer, int timeout_ms = 0) {
    pollfd waiting{peer.socket(), POLLIN, 0};
    return poll(&waiting, 1, timeout_ms) > 0 ? waiting.revents : 0;
  }

  static sockaddr_can address() {
    sockaddr_can address{};
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(if_nametoindex(TestBus::kInterface));
    return address;
  }

  static int interface_flags(const BusPeer& peer) {
    ifreq request{};
    std::strcpy(request.ifr_name, TestBus::kInterface);
    EXPECT_EQ(ioctl(peer.socket(), SIOCGIFFLAGS, &request), 0);
    return request.ifr_flags;
  }

  TestBus bus;
};
