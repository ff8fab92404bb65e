#include "kelvara/damiao_motor/dm_motor_control.hpp"

#include <cmath>
#include <limits>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/captured_output.hpp"

namespace kelvara::damiao_motor {
namespace {

using ::testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(CanPacketEncoder, BuildsEveryCommandFrame) {
  const Motor motor(MotorType::V8_T28, 0x0103, 0x11);
  const auto expect = [](const CANPacket& packet, std::uint32_t id, const Bytes& data) {
    EXPECT_EQ(packet.can_id, id);
    EXPECT_EQ(packet.data, data);
  };
  using Encoder = CanPacketEncoder;
  expect(Encoder::create_enable_command(motor), 0x103,
         {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFC});
  expect(Encoder::create_disable_command(motor), 0x103,
         {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFD});
  expect(Encoder::create_set_zero_command(motor), 0x103,
         {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE});
  expect(Encoder::create_clrErr_command(motor), 0x103,
         {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFB});
  // The refresh carries only the low byte of the identifier, the register frames both.
  expect(Encoder::create_refresh_command(motor), 0x7FF, {0x03, 0, 0xCC, 0, 0, 0, 0, 0});
  expect(Encoder::create_query_param_command(motor, 27), 0x7FF,
         {0x03, 0x01, 0x33, 0x1B, 0, 0, 0, 0});
  expect(Encoder::create_write_param_command(motor, 9, 1000U), 0x7FF,
         {0x03, 0x01, 0x55, 0x09, 0xE8, 0x03, 0, 0});
  expect(Encoder::create_write_param_command(motor, 4, 30.0F), 0x7FF,
         {0x03, 0x01, 0x55, 0x04, 0x00, 0x00, 0xF0, 0x41});
  expect(Encoder::create_param_write_RID_command(motor, POS_VEL_MODE), 0x7FF,
         {0x03, 0x01, 0x55, 0x0A, 0x02, 0, 0, 0});
  expect(Encoder::create_pos_vel_control_command(motor, {1.0F, -2.5F}), 0x203,
         {0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x20, 0xC0});
}

TEST(CanPacketEncoder, PacksMitFieldsAndClampsThemIntoRange) {
  const auto pack = [](const MITParam& param) {
    return CanPacketEncoder::pack_mit_control_data(MotorType::V30_T10, param);
  };
  EXPECT_THAT(pack({0, 0, 0, 0, 0}), ElementsAre(0x7F, 0xFF, 0x7F, 0xF0, 0, 0, 0x07, 0xFF));
  EXPECT_THAT(pack({600, 9, 99, 99, 99}),
              ElementsAre(0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF));
  EXPECT_THAT(pack({-1, -1, -99, -99, -99}), ElementsAre(0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(pack({kNaN, kNaN, kNaN, kNaN, kNaN}), ElementsAre(0, 0, 0, 0, 0, 0, 0, 0));
  // kp 0x4CC, kd 0x333, q 0xB332, dq 0x954, tau 0x666: every nibble in its place.
  EXPECT_THAT(pack({150.0, 1.0, 5.0, 5.0, -2.0}),
              ElementsAre(0xB3, 0x32, 0x95, 0x44, 0xCC, 0x33, 0x36, 0x66));
}

TEST(Scaling, RoundTripLosesAtMostOneStep) {
  std::mt19937 random(7);
  for (const int bits : {12, 16}) {
    for (const LimitParam& row : MOTOR_LIMIT_PARAMS) {
      std::uniform_real_distribution<double> values(-row.vmax, row.vmax);
      const double x = values(random);
      const auto raw = static_cast<std::uint16_t>(double_to_uint(x, -row.vmax, row.vmax, bits));
      const double back = uint_to_double(raw, -row.vmax, row.vmax, bits);
      EXPECT_LE(back, x + 1e-9) << "bits " << bits << " vmax " << row.vmax;
      EXPECT_GT(back, x - 2 * row.vmax / ((1 << bits) - 1) - 1e-9) << bits << ' ' << row.vmax;
    }
    EXPECT_EQ(double_to_uint(3.0, -3.0, 3.0, bits), (1U << bits) - 1);
    EXPECT_EQ(double_to_uint(-3.0, -3.0, 3.0, bits), 0U);
  }
}

TEST(CanPacketDecoder, DecodesFeedback) {
  const Motor motor(MotorType::V8_T28, 1, 0x11);
  const StateResult state = CanPacketDecoder::parse_motor_state_data(
      motor, {0xD1, 0xFF, 0xFF, 0x00, 0x0F, 0xFF, 31, 29, 0xAA});
  EXPECT_TRUE(state.valid);
  EXPECT_EQ(state.feedback_id, 1);
  EXPECT_EQ(state.error_code, 0xD);
  EXPECT_DOUBLE_EQ(state.position, 12.5);
  EXPECT_DOUBLE_EQ(state.velocity, -8.0);
  EXPECT_DOUBLE_EQ(state.torque, 28.0);
  EXPECT_EQ(state.t_mos, 31);
  EXPECT_EQ(state.t_rotor, 29);

  CapturedOutput output;
  const StateResult short_state = CanPacketDecoder::parse_motor_state_data(motor, Bytes(7, 0xFF));
  EXPECT_FALSE(short_state.valid);
  EXPECT_EQ(short_state.position, 0.0);
  EXPECT_EQ(output.err(), "Warning: Skipping motor state data less than 8 bytes\n");
}

TEST(CanPacketDecoder, DecodesRegisterReplies) {
  const auto decode = CanPacketDecoder::parse_motor_param_data;
  const ParamResult mode = decode({1, 0, 0x33, 10, 2, 0, 0, 0x80});
  EXPECT_TRUE(mode.valid);
  EXPECT_EQ(mode.rid, 10);
  EXPECT_EQ(mode.value, 2147483650.0);
  const ParamResult acceleration = decode({1, 0, 0x55, 4, 0, 0, 0xF0, 0x41});
  EXPECT_TRUE(acceleration.valid);
  EXPECT_EQ(acceleration.command, 0x55);
  EXPECT_EQ(acceleration.value, 30.0);

  CapturedOutput output;
  const ParamResult short_reply = decode(Bytes(7, 0x33));
  EXPECT_FALSE(short_reply.valid);
  EXPECT_TRUE(std::isnan(short_reply.value));
  EXPECT_EQ(output.err(), "");
  EXPECT_FALSE(decode({1, 0, 0x34, 4, 0, 0, 0, 0}).valid);
  EXPECT_EQ(output.err(), "WARNING: INVALID PARAM DATA\n");
}

}  // namespace
}  // namespace kelvara::damiao_motor
