#include <algorithm>
#include <memory>

#include <gtest/gtest.h>

#include "kelvara/damiao_motor/dm_motor_device.hpp"
#include "kelvara/damiao_motor/dm_motor_device_collection.hpp"
#include "support/captured_output.hpp"
#include "support/test_bus.hpp"

namespace kelvara::damiao_motor {
namespace {

template <typename Frame>
Frame make_frame(canid_t id, const std::vector<std::uint8_t>& data) {
  Frame frame{};
  frame.can_id = id;
  frame.len = static_cast<std::uint8_t>(data.size());
  std::copy(data.begin(), data.end(), frame.data);
  return frame;
}

const std::vector<std::uint8_t> kEnabledAtPmax{0x11, 0xFF, 0xFF, 0x80, 0x08, 0x00, 31, 29};

TEST(MotorDevice, ReportsEachChangeOfTheErrorStateOnce) {
  // Identifiers of this test's own: what was reported last is remembered for each.
  Motor motor(MotorType::V8_T28, 1, 0x2A1);
  DMCANDevice device(motor, 0x7FF, false);
  CapturedOutput output;
  auto data = kEnabledAtPmax;
  device.callback(make_frame<can_frame>(0x2A1, data));
  device.callback(make_frame<can_frame>(0x2A1, data));
  data[0] = 0xD1;
  device.callback(make_frame<can_frame>(0x2A1, data));
  data[0] = 0x71;
  device.callback(make_frame<can_frame>(0x2A1, data));
  EXPECT_EQ(output.err(),
            "[DM ERR] recv_id=0x2a1 feedback_id=1 ERR: 0x0 -> 0x1 (Enabled) t_mos=31 t_rotor=29\n"
            "[DM ERR] recv_id=0x2a1 feedback_id=1 ERR: 0x1 -> 0xd (Communication lost) t_mos=31 "
            "t_rotor=29\n"
            "[DM ERR] recv_id=0x2a1 feedback_id=1 ERR: 0xd -> 0x7 (Unknown/Reserved) t_mos=31 "
            "t_rotor=29\n");
  EXPECT_EQ(motor.position, 12.5);
  EXPECT_EQ(motor.error_code, 7);
}

TEST(MotorDevice, TakesOnlyWholeFeedbackOfItsOwn) {
  Motor motor(MotorType::V8_T28, 1, 0x2A2);
  DMCANDevice classic(motor, 0x7FF, false);
  DMCANDevice fd(motor, 0x7FF, true);
  CapturedOutput output;
  std::string expected;
  const auto six = std::vector<std::uint8_t>(6, 0xFF);
  classic.callback(make_frame<can_frame>(0x2A2, six));
  classic.callback(make_frame<can_frame>(0x2A3, kEnabledAtPmax));
  EXPECT_EQ(output.err(), expected);
  classic.callback(make_frame<canfd_frame>(0x2A2, kEnabledAtPmax));
  EXPECT_EQ(output.err(), expected += "WARNING: CANFD MODE NOT ENABLED\n");
  fd.callback(make_frame<can_frame>(0x2A2, kEnabledAtPmax));
  EXPECT_EQ(output.err(), expected += "WARNING: WRONG CALLBACK FUNCTION\n");
  fd.callback(make_frame<canfd_frame>(0x2A3, kEnabledAtPmax));
  EXPECT_EQ(output.err(), expected += "WARNING: CANFD FRAME ID DOES NOT MATCH MOTOR ID\n");
  fd.callback(make_frame<canfd_frame>(0x2A2, six));
  EXPECT_EQ(output.err(), expected += "Warning: Skipping motor state data less than 8 bytes\n");
  fd.set_callback_mode(CallbackMode::IGNORE);
  fd.callback(make_frame<canfd_frame>(0x2A2, kEnabledAtPmax));
  EXPECT_EQ(motor.position, 0.0);
  fd.set_callback_mode(CallbackMode::STATE);
  fd.callback(make_frame<canfd_frame>(0x2A2, kEnabledAtPmax));
  EXPECT_EQ(motor.position, 12.5);
}

TEST(MotorDevice, StoresQueryRepliesButNotWriteEchoes) {
  Motor motor(MotorType::V8_T28, 1, 0x2A4);
  DMCANDevice device(motor, 0x7FF, false);
  device.set_callback_mode(CallbackMode::PARAM);
  device.callback(make_frame<can_frame>(0x2A4, {1, 0, 0x33, 4, 0, 0, 0xF0, 0x41}));
  device.callback(make_frame<can_frame>(0x2A4, {1, 0, 0x55, 5, 0, 0, 0xF0, 0x41}));
  EXPECT_EQ(motor.get_param(4), 30.0);
  EXPECT_EQ(motor.get_param(5), -1.0);
}

struct MotorCollection : ::testing::TestWithParam<bool> {
  MotorCollection() {
    // Added out of order: they are numbered by feedback identifier.
    for (const std::size_t k : {1U, 0U, 2U}) {
      devices.get_device_collection().add_device(
          std::make_shared<DMCANDevice>(motors[k], 0x7FF, GetParam()));
    }
  }

  void expect_sent(const std::vector<std::string>& frames) {
    std::vector<BusFrame> expected;
    for (const std::string& frame : frames) {
      expected.push_back(parse_frame(frame, GetParam()));
    }
    EXPECT_EQ(peer.receive(), expected);
  }

  TestBus bus;
  BusPeer peer;
  canbus::CANSocket socket{TestBus::kInterface, GetParam()};
  std::vector<Motor> motors{
      {MotorType::V8_T28, 1, 0x11}, {MotorType::V8_T28, 2, 0x12}, {MotorType::V30_T10, 7, 0x17}};
  DMDeviceCollection devices{socket};
};

TEST_P(MotorCollection, FansCommandsOutInOrderOfFeedbackIdentifier) {
  devices.enable_all();
  expect_sent({"001#FFFFFFFFFFFFFFFC", "002#FFFFFFFFFFFFFFFC", "007#FFFFFFFFFFFFFFFC"});
  devices.refresh_all();
  expect_sent({"7FF#0100CC0000000000", "7FF#0200CC0000000000", "7FF#0700CC0000000000"});
  devices.set_timeout_all(0);
  expect_sent({"7FF#0100550900000000", "7FF#0200550900000000", "7FF#0700550900000000"});
  devices.set_acc_all({30.0F, 1.0F});  // the third motor has no value
  expect_sent({"7FF#010055040000F041", "7FF#020055040000803F"});
  devices.mit_control_all({{}, {}, {150.0, 1.0, 5.0, 5.0, -2.0}});
  expect_sent({"001#7FFF7FF0000007FF", "002#7FFF7FF0000007FF", "007#B3329544CC333666"});
  devices.pos_vel_control_one(1, {1.0F, -2.5F});
  expect_sent({"102#0000803F000020C0"});
  devices.query_param_one(2, 27);
  devices.write_param_one(0, 9, 1000U);
  devices.refresh_one(3);  // no such motor
  expect_sent({"7FF#0700331B00000000", "7FF#01005509E8030000"});
}

INSTANTIATE_TEST_SUITE_P(ClassicAndFd, MotorCollection, ::testing::Bool());

}  // namespace
}  // namespace kelvara::damiao_motor
