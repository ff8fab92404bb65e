// An interface that goes down, comes up, is full or goes away.

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "virtual_can/bus_fixture.hpp"

namespace {

using InterfaceState = BusBehaviour;

TEST_F(InterfaceState, ReportsThatTheInterfaceWentDownOnceToEachSocketInTheFirstCallThatCan) {
  BusPeer reader;
  BusPeer writer;
  BusPeer asker;
  const canfd_frame frame{};
  writer.send(parse_frame("123#00"));
  EXPECT_EQ(poll_events(reader, 5000), POLLIN);
  EXPECT_EQ(poll_events(asker, 5000), POLLIN);
  EXPECT_NE(interface_flags(reader) & IFF_UP, 0);
  bus.interface().set_up(false);
  EXPECT_EQ(interface_flags(reader) & IFF_UP, 0);

  // Before the frames that wait.
  EXPECT_EQ(poll_events(reader), POLLIN | POLLERR);
  EXPECT_EQ(read_error(reader), ENETDOWN);
  EXPECT_EQ(poll_events(reader), POLLIN);
  EXPECT_EQ(read_error(reader), 0);
  EXPECT_EQ(read_error(reader), EAGAIN);

  EXPECT_EQ(poll_events(writer), POLLERR);
  EXPECT_EQ(write_error(writer, frame, 5), EINVAL);
  EXPECT_EQ(write_error(writer, frame, CAN_MTU), ENETDOWN);
  EXPECT_EQ(poll_events(writer), 0);
  EXPECT_EQ(read_error(writer), EAGAIN);
  EXPECT_EQ(write_error(writer, frame, CAN_MTU), ENETDOWN) << "as long as it is down";

  int error = 0;
  socklen_t size = sizeof(error);
  EXPECT_EQ(getsockopt(asker.socket(), SOL_SOCKET, SO_ERROR, &error, &size), 0);
  EXPECT_EQ(error, ENETDOWN);
  EXPECT_EQ(read_error(asker), 0);
  EXPECT_EQ(read_error(asker), EAGAIN);

  BusPeer late;  // binding to an interface that is down succeeds
  bus.interface().set_up(true);
  EXPECT_EQ(read_error(late), ENETDOWN);
  writer.send(parse_frame("124#00"));
  EXPECT_EQ(late.receive().size(), 1U);
  EXPECT_EQ(reader.receive().size(), 1U);
  for (const bool up : {false, true, false, true}) {
    bus.interface().set_up(up);
  }
  EXPECT_EQ(write_error(writer, frame, CAN_MTU), ENETDOWN) << "although it is up again";
  EXPECT_EQ(write_error(writer, frame, CAN_MTU), 0);
  EXPECT_EQ(read_error(reader), ENETDOWN);
  EXPECT_EQ(reader.receive().size(), 1U);
  EXPECT_EQ(read_error(reader), EAGAIN);
}

TEST_F(InterfaceState, WakesWaitingReadersWhenTheInterfaceGoesDown) {
  const BusPeer reader;
  for (const bool polls : {true, false}) {
    std::thread breaker([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      bus.interface().set_up(false);
    });
    canfd_frame frame{};
    if (polls) {
      EXPECT_EQ(poll_events(reader, 20'000), POLLERR);
    }
    EXPECT_EQ(read(reader.socket(), &frame, sizeof(frame)), -1);
    EXPECT_EQ(errno, ENETDOWN);
    breaker.join();
    bus.interface().set_up(true);
  }
}

TEST_F(InterfaceState, FailsWritesWhileTheQueueIsFull) {
  BusPeer peer;
  BusPeer other;
  const canfd_frame frame{};
  bus.interface().set_queue_full(true);
  EXPECT_EQ(write_error(peer, frame, CAN_MTU), ENOBUFS);
  EXPECT_EQ(write_error(other, frame, CAN_MTU), ENOBUFS);
  bus.interface().set_queue_full(false);
  EXPECT_EQ(write_error(peer, frame, CAN_MTU), 0);
  EXPECT_EQ(other.receive().size(), 1U);
}

TEST_F(InterfaceState, ReportsAnInterfaceThatIsMissingOrGoesAway) {
  const BusPeer peer;
  const BusPeer sender;
  for (const char* name : {"can7", "sixteen-letters-"}) {
    ifreq request{};
    std::memcpy(request.ifr_name, name, std::strlen(name));
    EXPECT_EQ(ioctl(peer.socket(), SIOCGIFINDEX, &request), -1) << name;
    EXPECT_EQ(errno, ENODEV);
  }
  EXPECT_EQ(if_nametoindex(TestBus::kInterface), static_cast<unsigned>(address().can_ifindex));
  sender.send(parse_frame("123#00"));
  EXPECT_EQ(poll_events(peer, 5000), POLLIN);
  bus.remove_interface();
  EXPECT_EQ(poll_events(peer), POLLIN | POLLERR);
  EXPECT_EQ(write_error(peer, {}, CAN_MTU), ENXIO);
  EXPECT_EQ(read_error(peer), ENODEV);
  EXPECT_EQ(read_error(peer), 0) << "the frame that came before";
  EXPECT_EQ(read_error(peer), EAGAIN);
  EXPECT_EQ(poll_events(peer), 0);
  EXPECT_THROW(BusPeer(), std::runtime_error);
}

}  // namespace
