#include "kelvara/damiao_motor/dm_motor_device.hpp"

#include <algorithm>

#include <gtest/gtest.h>

#include "support/captured_output.hpp"

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

TEST(DmCanDevice, ReportsEachChangeOfTheErrorStateOnce) {
  // Each test uses identifiers of its own: the last reported state is stored for each identifier.
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

TEST(DmCanDevice, AcceptsOnlyWholeFeedbackOfItsMotor) {
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

TEST(DmCanDevice, StoresQueryRepliesButNotWriteEchoes) {
  Motor motor(MotorType::V8_T28, 1, 0x2A4);
  DMCANDevice device(motor, 0x7FF, false);
  device.set_callback_mode(CallbackMode::PARAM);
  device.callback(make_frame<can_frame>(0x2A4, {1, 0, 0x33, 4, 0, 0, 0xF0, 0x41}));
  device.callback(make_frame<can_frame>(0x2A4, {1, 0, 0x55, 5, 0, 0, 0xF0, 0x41}));
  EXPECT_EQ(motor.get_param(4), 30.0);
  EXPECT_EQ(motor.get_param(5), -1.0);
}

}  // namespace
}  // namespace kelvara::damiao_motor
