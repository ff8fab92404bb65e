// Plain socket calls against the bus, as any SocketCAN program makes them.

#include <linux/can.h>
#include <linux/can/error.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <gtest/gtest.h>

#include "support/virtual_bus.hpp"

namespace {

struct VirtualCan : ::testing::Test {
  template <typename Value>
  static int set(const BusPeer& peer, int option, const Value& value) {
    return setsockopt(peer.socket(), SOL_CAN_RAW, option, &value, sizeof(value));
  }

  static int write_size(const BusPeer& peer, const canfd_frame& frame, std::size_t size) {
    errno = 0;
    return write(peer.socket(), &frame, size) == static_cast<ssize_t>(size) ? 0 : errno;
  }

  /// The error that the next read gives, 0 when it gives a frame.
  static int read_error(const BusPeer& peer) {
    canfd_frame frame{};
    return recv(peer.socket(), &frame, sizeof(frame), MSG_DONTWAIT) > 0 ? 0 : errno;
  }

  static int interface_flags(const BusPeer& peer) {
    ifreq request{};
    std::strcpy(request.ifr_name, VirtualBus::kInterface);
    EXPECT_EQ(ioctl(peer.socket(), SIOCGIFFLAGS, &request), 0);
    return request.ifr_flags;
  }

  VirtualBus bus;
};

TEST_F(VirtualCan, GivesFdFramesOnlyToSocketsThatAskedForThemAndNobodyItsOwn) {
  BusPeer sender;
  BusPeer fd_reader;
  BusPeer classic_reader(false);
  const BusFrame classic = parse_frame("123#DEADBEEF");
  const BusFrame fd = parse_frame("124#000102030405060708090A0B", true);
  sender.send(classic);
  sender.send(fd);
  EXPECT_EQ(fd_reader.receive(), (std::vector{classic, fd}));
  EXPECT_EQ(classic_reader.receive(), (std::vector{classic}));
  EXPECT_TRUE(sender.receive().empty());

  ASSERT_EQ(set(sender, CAN_RAW_RECV_OWN_MSGS, 1), 0);
  sender.send(classic);
  EXPECT_EQ(sender.receive(), (std::vector{classic}));
  ASSERT_EQ(set(sender, CAN_RAW_LOOPBACK, 0), 0);
  fd_reader.receive();
  sender.send(classic);
  EXPECT_TRUE(fd_reader.receive().empty());
}

TEST_F(VirtualCan, FiltersAtTheDescriptor) {
  BusPeer sender;
  BusPeer reader;
  const can_filter two[] = {{0x100, 0x700}, {0x223 | CAN_INV_FILTER, 0x7FF}};
  const auto passed = [&] {
    std::vector<std::uint32_t> ids;
    for (const std::uint32_t id : {0x123U, 0x223U, 0x323U}) {
      sender.send({id, "00", false});
    }
    for (const BusFrame& frame : reader.receive()) {
      ids.push_back(frame.id);
    }
    return ids;
  };
  using Ids = std::vector<std::uint32_t>;
  ASSERT_EQ(set(reader, CAN_RAW_FILTER, two), 0);
  EXPECT_EQ(passed(), (Ids{0x123, 0x323}));
  ASSERT_EQ(set(reader, CAN_RAW_JOIN_FILTERS, 1), 0);
  EXPECT_EQ(passed(), (Ids{0x123}));
  ASSERT_EQ(setsockopt(reader.socket(), SOL_CAN_RAW, CAN_RAW_FILTER, nullptr, 0), 0);
  EXPECT_EQ(passed(), Ids{});
  // Error frames have a mask of their own.
  ASSERT_EQ(set(reader, CAN_RAW_ERR_FILTER, can_err_mask_t{CAN_ERR_BUSOFF}), 0);
  canfd_frame error{};
  error.len = 8;
  for (const canid_t kind : {CAN_ERR_BUSOFF, CAN_ERR_ACK}) {
    error.can_id = CAN_ERR_FLAG | kind;
    ASSERT_EQ(write_size(sender, error, CAN_MTU), 0);
  }
  EXPECT_EQ(reader.receive().size(), 1U);
}

TEST_F(VirtualCan, RefusesFramesThatTheKernelRefuses) {
  BusPeer fd_peer;
  BusPeer classic_peer(false);
  canfd_frame frame{};
  frame.can_id = 1;
  frame.len = 8;
  EXPECT_EQ(write_size(fd_peer, frame, 20), EINVAL);
  EXPECT_EQ(write_size(classic_peer, frame, CANFD_MTU), EINVAL);
  frame.len = 9;
  EXPECT_EQ(write_size(classic_peer, frame, CAN_MTU), EINVAL);
  EXPECT_EQ(write_size(fd_peer, frame, CANFD_MTU), 0);
  frame.len = 65;
  EXPECT_EQ(write_size(fd_peer, frame, CANFD_MTU), EINVAL);
  const int unbound = socket(AF_CAN, SOCK_RAW, CAN_RAW);
  EXPECT_EQ(write(unbound, &frame, CAN_MTU), -1);
  EXPECT_EQ(errno, ENXIO);
  close(unbound);

  const kelvara::simulation::VirtualCanHub narrow("can1", {CAN_MTU});
  ifreq request{};
  std::strcpy(request.ifr_name, "can1");
  ASSERT_EQ(ioctl(fd_peer.socket(), SIOCGIFMTU, &request), 0);
  EXPECT_EQ(request.ifr_mtu, CAN_MTU);
}

TEST_F(VirtualCan, TellsOnceThatTheInterfaceWentDownAndCarriesOnWhenItIsUp) {
  BusPeer peer;
  BusPeer other;
  canfd_frame frame{};
  EXPECT_NE(interface_flags(peer) & IFF_UP, 0);
  bus.hub().set_up(false);
  EXPECT_EQ(interface_flags(peer) & IFF_UP, 0);
  pollfd waiting{peer.socket(), POLLIN, 0};
  EXPECT_EQ(poll(&waiting, 1, 5000), 1);
  EXPECT_EQ(read_error(peer), ENETDOWN);
  EXPECT_EQ(read_error(peer), EAGAIN);
  EXPECT_EQ(write_size(peer, frame, CAN_MTU), ENETDOWN);
  BusPeer late;  // binding to an interface that is down succeeds
  EXPECT_EQ(read_error(late), ENETDOWN);
  bus.hub().set_up(true);
  peer.send(parse_frame("123#00"));
  EXPECT_EQ(late.receive().size(), 1U);

  bus.hub().fail_next_writes_with_enobufs(2);
  EXPECT_EQ(write_size(peer, frame, CAN_MTU), ENOBUFS);
  EXPECT_EQ(write_size(other, frame, CAN_MTU), ENOBUFS);
  EXPECT_EQ(write_size(peer, frame, CAN_MTU), 0);
}

TEST_F(VirtualCan, ReportsAnInterfaceThatIsMissingOrGoesAway) {
  BusPeer peer;
  ifreq request{};
  std::strcpy(request.ifr_name, "can7");
  EXPECT_EQ(ioctl(peer.socket(), SIOCGIFINDEX, &request), -1);
  EXPECT_EQ(errno, ENODEV);
  EXPECT_EQ(if_nametoindex(VirtualBus::kInterface),
            static_cast<unsigned>(bus.hub().interface_index()));
  bus.remove_interface();
  pollfd waiting{peer.socket(), POLLIN, 0};
  EXPECT_EQ(poll(&waiting, 1, 5000), 1);
  EXPECT_EQ(read_error(peer), ENODEV);
  EXPECT_EQ(write_size(peer, {}, CAN_MTU), ENXIO);
  EXPECT_THROW(BusPeer(), std::runtime_error);
}

TEST_F(VirtualCan, KeepsNamesUniqueAndRefusesBadOnes) {
  using kelvara::simulation::VirtualCanHub;
  EXPECT_THROW(VirtualCanHub("can0"), std::runtime_error);
  for (const char* name : {"", "a/b", "a b", "..", "sixteen-letters-"}) {
    EXPECT_THROW(VirtualCanHub{name}, std::invalid_argument) << name;
  }
  EXPECT_THROW(VirtualCanHub("can1", {64}), std::invalid_argument);
}

TEST_F(VirtualCan, LetsASlowReaderMissFramesButNobodyElse) {
  BusPeer sender;
  BusPeer sleeper;
  BusPeer reader;
  std::size_t received = 0;
  constexpr std::size_t kFrames = 4000;
  for (std::size_t i = 0; i < kFrames; ++i) {
    sender.send(parse_frame("123#0102030405060708"));
    if (i % 100 == 99) {
      received += reader.receive(std::chrono::milliseconds(5)).size();
    }
  }
  received += reader.receive().size();
  EXPECT_EQ(received, kFrames);
  EXPECT_LT(sleeper.receive().size(), kFrames);
}

}  // namespace
