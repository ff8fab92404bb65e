// Sockets, addresses and frames.

#include <linux/can.h>
#include <linux/can/error.h>
#include <linux/can/raw.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <vector>

#include "virtual_can/bus_fixture.hpp"

namespace {

TEST_F(BusBehaviour, DeliversFdFramesOnlyToSocketsThatEnabledThemAndNoneToTheirSender) {
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

TEST_F(BusBehaviour, DeliversOnlyFramesThatPassTheFilters) {
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
    ASSERT_EQ(write_error(sender, error, CAN_MTU), 0);
  }
  EXPECT_EQ(reader.receive().size(), 1U);
}

TEST_F(BusBehaviour, RefusesFramesThatTheKernelRefuses) {
  BusPeer fd_peer;
  BusPeer classic_peer(false);
  canfd_frame frame{};
  frame.can_id = 1;
  frame.len = 8;
  EXPECT_EQ(write_error(fd_peer, frame, 20), EINVAL);
  EXPECT_EQ(write_error(classic_peer, frame, CANFD_MTU), EINVAL);
  frame.len = 9;
  EXPECT_EQ(write_error(classic_peer, frame, CAN_MTU), EINVAL);
  EXPECT_EQ(write_error(fd_peer, frame, CANFD_MTU), 0);
  frame.len = 65;
  EXPECT_EQ(write_error(fd_peer, frame, CANFD_MTU), EINVAL);
  const int unbound = socket(AF_CAN, SOCK_RAW, CAN_RAW);
  EXPECT_EQ(write(unbound, &frame, CAN_MTU), -1);
  EXPECT_EQ(errno, ENXIO);
  EXPECT_EQ(write(unbound, &frame, 5), -1);
  EXPECT_EQ(errno, EINVAL);
  close(unbound);

  const auto narrow = make_interface("can1", CAN_MTU);
  ifreq request{};
  std::strcpy(request.ifr_name, "can1");
  ASSERT_EQ(ioctl(fd_peer.socket(), SIOCGIFMTU, &request), 0);
  EXPECT_EQ(request.ifr_mtu, CAN_MTU);
}

TEST_F(BusBehaviour, ReadsOneFrameAtATimeAndCutsItToTheBuffer) {
  BusPeer sender;
  BusPeer reader;
  sender.send(parse_frame("123#01020304"));
  sender.send(parse_frame("124#0506"));
  canfd_frame frame{};
  EXPECT_EQ(recv(reader.socket(), &frame, sizeof(frame), MSG_PEEK), ssize_t{CAN_MTU});
  sockaddr_can source{};
  iovec part{&frame, 6};
  msghdr message{};
  message.msg_name = &source;
  message.msg_namelen = sizeof(source);
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  EXPECT_EQ(recvmsg(reader.socket(), &message, MSG_TRUNC), 6);
  EXPECT_EQ(message.msg_flags, MSG_TRUNC | MSG_DONTROUTE);
  EXPECT_EQ(message.msg_namelen, offsetof(sockaddr_can, can_addr));
  EXPECT_EQ(source.can_ifindex, address().can_ifindex);
  EXPECT_EQ(read(reader.socket(), &frame, sizeof(frame)), ssize_t{CAN_MTU});
  EXPECT_EQ(frame.can_id, 0x124U);
  EXPECT_EQ(poll_events(reader), 0);
  const timeval limit{0, 1000};
  setsockopt(reader.socket(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
  EXPECT_EQ(read(reader.socket(), &frame, sizeof(frame)), -1);
  EXPECT_EQ(errno, EAGAIN);

  ASSERT_EQ(set(sender, CAN_RAW_RECV_OWN_MSGS, 1), 0);
  sender.send(parse_frame("125#"));
  EXPECT_EQ(recvmsg(sender.socket(), &message, 0), 6);
  EXPECT_EQ(message.msg_flags, MSG_TRUNC | MSG_DONTROUTE | MSG_CONFIRM);
}

TEST_F(BusBehaviour, RefusesBadSocketsAndAddresses) {
  const auto refusal = [](int type, int protocol) {
    return socket(AF_CAN, type, protocol) < 0 ? errno : 0;
  };
  EXPECT_EQ(refusal(SOCK_DGRAM, CAN_RAW), EPROTOTYPE);
  EXPECT_EQ(refusal(SOCK_RAW, 5), EPROTONOSUPPORT);
  EXPECT_EQ(refusal(SOCK_RAW, 99), EINVAL);

  const BusPeer peer;
  const canfd_frame frame{};
  const auto bind_error = [&](const sockaddr_can& to, socklen_t length) {
    return bind(peer.socket(), reinterpret_cast<const sockaddr*>(&to), length) == 0 ? 0 : errno;
  };
  const auto send_error = [&](const sockaddr_can& to) {
    const auto* name = reinterpret_cast<const sockaddr*>(&to);
    return sendto(peer.socket(), &frame, CAN_MTU, 0, name, sizeof(to)) == CAN_MTU ? 0 : errno;
  };
  constexpr socklen_t kShortest = offsetof(sockaddr_can, can_addr);
  sockaddr_can bad = address();
  EXPECT_EQ(bind_error(bad, kShortest - 1), EINVAL);
  bad.can_ifindex = 999;
  EXPECT_EQ(bind_error(bad, sizeof(bad)), ENODEV);
  EXPECT_EQ(send_error(bad), ENXIO);
  bad.can_family = AF_UNIX;
  EXPECT_EQ(bind_error(bad, sizeof(bad)), EINVAL);
  EXPECT_EQ(send_error(bad), EINVAL);
  EXPECT_EQ(bind_error(address(), kShortest), 0) << "once more to the same interface";
  // A socket on any interface does not know which one to send on.
  sockaddr_can any = address();
  any.can_ifindex = 0;
  EXPECT_EQ(bind_error(any, sizeof(any)), 0);
  EXPECT_EQ(write_error(peer, frame, CAN_MTU), ENXIO);
  EXPECT_EQ(send_error(address()), 0);
}

TEST_F(BusBehaviour, DeliversWhatASenderSentBeforeItClosedWithFramesUnread) {
  constexpr std::size_t kRounds = 20;
  constexpr std::size_t kFrames = 14;
  BusPeer reader;
  BusPeer other;
  std::size_t received = 0;
  for (std::size_t round = 0; round < kRounds; ++round) {
    {
      const BusPeer closing;
      other.send(parse_frame("200#00"));
      ASSERT_EQ(poll_events(closing, 5000), POLLIN);
      for (std::size_t i = 0; i < kFrames; ++i) {
        closing.send(parse_frame("123#0102030405060708"));
      }
    }
    received += reader.receive(std::chrono::milliseconds(5)).size();
  }
  received += reader.receive().size();
  EXPECT_EQ(received, kRounds * (kFrames + 1));
}

TEST_F(BusBehaviour, DropsFramesOnlyForTheReaderThatFallsBehind) {
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
