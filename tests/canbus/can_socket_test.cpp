#include "kelvara/canbus/can_socket.hpp"

#include <gtest/gtest.h>

#include "support/captured_output.hpp"
#include "support/test_bus.hpp"

namespace kelvara::canbus {
namespace {

std::string error_of(const std::string& interface) {
  try {
    const CANSocket socket(interface, false);
  } catch (const CANSocketException& error) {
    return error.what();
  }
  return "";
}

TEST(CanSocket, CarriesWholeFramesBothWays) {
  TestBus bus;
  BusPeer peer;
  CANSocket classic(TestBus::kInterface, false);
  can_frame frame{};
  frame.can_id = 0x123;
  frame.can_dlc = 2;
  frame.data[0] = 0xAB;
  EXPECT_TRUE(classic.write_can_frame(frame));
  EXPECT_EQ(peer.receive(), (std::vector{parse_frame("123#AB00")}));
  EXPECT_FALSE(classic.is_data_available(0));
  peer.send(parse_frame("011#0102"));
  EXPECT_TRUE(classic.is_data_available(2'000'000));
  EXPECT_TRUE(classic.read_can_frame(frame));
  EXPECT_EQ(frame.can_id, 0x11U);
  EXPECT_EQ(frame.can_dlc, 2);
  EXPECT_FALSE(classic.read_can_frame(frame)) << "the queue is empty; the read times out";

  CANSocket fd(TestBus::kInterface, true);
  canfd_frame fd_frame{};
  peer.send(parse_frame("011#0102"));
  EXPECT_TRUE(fd.is_data_available(2'000'000));
  EXPECT_FALSE(fd.read_canfd_frame(fd_frame)) << "a classic frame is shorter than a CAN-FD frame";
  peer.send(parse_frame("012#0304", true));
  EXPECT_TRUE(fd.is_data_available(2'000'000));
  EXPECT_TRUE(fd.read_canfd_frame(fd_frame));
  EXPECT_EQ(fd_frame.len, 2);
}

TEST(CanSocket, CutsLongInterfaceNameToFifteenCharacters) {
  TestBus bus;
  const auto interface = make_interface("abcdefghijklmno");
  EXPECT_EQ(error_of("abcdefghijklmnopqrstuvwxyz"), "");
}

TEST(CanSocket, RefusesInterfacesThatAreMissingOrDown) {
  TestBus bus;
  CapturedOutput output;
  EXPECT_EQ(error_of("can9"), "Socket error: Failed to initialize socket for interface: can9");
  EXPECT_EQ(output.err(), "");
  bus.interface().set_up(false);
  EXPECT_EQ(error_of("can0"), "Socket error: Failed to initialize socket for interface: can0");
  EXPECT_EQ(output.err(),
            "CAN interface \"can0\" is DOWN. Did you run: sudo ip link set can0 up type can "
            "bitrate 1000000 ?\n");
}

TEST(CanSocket, FailsWithoutOutputOnceClosedAndWhenTheBusFails) {
  TestBus bus;
  CANSocket socket(TestBus::kInterface, false);
  can_frame frame{};
  bus.interface().set_queue_full(true);
  EXPECT_FALSE(socket.write_can_frame(frame));
  bus.interface().set_queue_full(false);
  EXPECT_TRUE(socket.write_can_frame(frame));
  bus.interface().set_up(false);
  EXPECT_TRUE(socket.is_data_available(2'000'000)) << "the interface's error is pending";
  EXPECT_FALSE(socket.read_can_frame(frame));
  EXPECT_FALSE(socket.is_data_available(0)) << "the error is reported once";
  EXPECT_FALSE(socket.write_can_frame(frame));
  bus.interface().set_up(true);
  EXPECT_TRUE(socket.write_can_frame(frame));
  socket.cleanup();
  socket.cleanup();
  EXPECT_FALSE(socket.write_can_frame(frame));
  EXPECT_FALSE(socket.read_can_frame(frame));
  EXPECT_FALSE(socket.is_data_available(0));
}

}  // namespace
}  // namespace kelvara::canbus
