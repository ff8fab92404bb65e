#include "kelvara/hardware/kelvara.hpp"

#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/captured_output.hpp"
#include "support/test_bus.hpp"

namespace kelvara::can::socket {
namespace {

using damiao_motor::MotorType;

TEST(Kelvara, ForwardsToArmThenGripperAndDecodesReceivedFrames) {
  TestBus bus;
  BusPeer peer;
  Kelvara hardware(TestBus::kInterface, false);
  EXPECT_THROW(hardware.init_arm_motors({MotorType::V8_T28}, {}, {}), std::invalid_argument);
  hardware.init_arm_motors({MotorType::V8_T28, MotorType::V8_T28}, {1, 2}, {0x2B1, 0x2B2});
  hardware.init_gripper_motor(MotorType::V30_T10, 7, 0x2B7);
  hardware.set_acc_all({1.0F, 30.0F});
  EXPECT_EQ(peer.receive(),
            (std::vector{parse_frame("7FF#010055040000803F"), parse_frame("7FF#020055040000F041"),
                         parse_frame("7FF#070055040000803F")}));

  CapturedOutput output;
  peer.send(parse_frame("3FF#00"));  // unknown identifier
  peer.send(parse_frame("2B2#12FFFF8008001F1D"));
  peer.send(parse_frame("2B7#17FFFF8008001F1D"));
  hardware.recv_all(200'000);
  EXPECT_EQ(hardware.get_arm().get_motors()[1].position, 12.5);
  EXPECT_EQ(hardware.get_gripper().get_motors()[0].position, 12.5);

  // A second motor with the same feedback identifier replaces the first.
  hardware.get_gripper().init_motor_device(MotorType::V30_T10, 8, 0x2B7, false);
  hardware.get_gripper().enable_all();
  EXPECT_EQ(peer.receive(), (std::vector{parse_frame("008#FFFFFFFFFFFFFFFC")}));
}

struct Witness final : FrameObserver {
  void on_frame(std::uint32_t can_id, const std::uint8_t* data, std::size_t size) override {
    frames.emplace_back(can_id, std::vector<std::uint8_t>(data, data + size));
  }
  void on_dropped_frame(std::uint32_t can_id, const std::uint8_t* /*data*/,
                        std::size_t /*size*/) override {
    dropped.push_back(can_id);
  }
  std::vector<std::uint32_t> dropped;
  std::vector<std::pair<std::uint32_t, std::vector<std::uint8_t>>> frames;
};

TEST(Kelvara, ReadsOnPastClassicFramesOnCanFdAndShowsAnObserverItsOwnKind) {
  TestBus bus;
  BusPeer peer;
  Kelvara hardware(TestBus::kInterface, true);
  hardware.init_arm_motors({MotorType::V8_T28}, {1}, {0x2C1});
  CapturedOutput output;
  Witness witness;
  hardware.set_frame_observer(&witness);
  peer.send(parse_frame("2C1#10FFFF8008001F1D"));
  peer.send(parse_frame("3FF#0102", true));  // no device's
  peer.send(parse_frame("2C1#11FFFF8008001F1D", true));
  hardware.recv_all(200'000);
  EXPECT_EQ(hardware.get_arm().get_motors()[0].position, 12.5);
  EXPECT_EQ(witness.dropped, std::vector<std::uint32_t>{0x2C1});
  ASSERT_EQ(witness.frames.size(), 2U);
  EXPECT_EQ(witness.frames[0], (std::pair{0x3FFU, std::vector<std::uint8_t>{1, 2}}));
  EXPECT_EQ(witness.frames[1].second[0], 0x11);
  hardware.set_frame_observer(nullptr);
  peer.send(parse_frame("3FF#", true));
  hardware.recv_all(200'000);
  EXPECT_EQ(witness.frames.size(), 2U);
}

}  // namespace
}  // namespace kelvara::can::socket
