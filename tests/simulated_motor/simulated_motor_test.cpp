#include "simulation/simulated_motor/simulated_motor.hpp"

#include <gtest/gtest.h>

#include "support/test_bus.hpp"

namespace kelvara::simulation {
namespace {

constexpr MotorModel kModel{12.5, 30.0, 10.0, 3.0};

struct SimulatedMotorTest : ::testing::Test {
  /// The data of the reply as hex digits; "" without a reply.
  std::string ask(const std::string& text) {
    const auto reply = motor.handle(to_raw(parse_frame(text)));
    if (!reply) {
      return "";
    }
    std::string out;
    for (std::size_t i = 0; i < reply->len; ++i) {
      constexpr const char* kDigits = "0123456789ABCDEF";
      out += {kDigits[reply->data[i] >> 4], kDigits[reply->data[i] & 0xF]};
    }
    EXPECT_EQ(reply->can_id, 0x14U);
    return out;
  }

  SimulatedMotor motor{kModel, 4, 0x14};
};

TEST_F(SimulatedMotorTest, RepliesToRegisterQueriesAndWrites) {
  EXPECT_EQ(ask("7FF#0400330A00000000"), "0400330A01000000");
  EXPECT_EQ(ask("7FF#0400550A02000000"), "0400550A02000000");
  EXPECT_EQ(motor.control_mode(), 2U);
  EXPECT_EQ(ask("7FF#0400550A09000000"), "0400550A02000000") << "no such mode";
  EXPECT_EQ(ask("7FF#040055040000F041"), "040055040000F041");
  EXPECT_EQ(ask("7FF#0400330400000000"), "040033040000F041");
  EXPECT_EQ(ask("7FF#0500330400000000"), "") << "for another motor";
  EXPECT_EQ(ask("7FF#0401330400000000"), "") << "for another motor";
}

TEST_F(SimulatedMotorTest, EnablesDisablesAndExecutesOnlyCommandsOfItsMode) {
  motor.advance(0.001, 1.0, 0.0);
  EXPECT_EQ(ask("7FF#0400CC0000000000").substr(0, 10), "048A3D8008");
  EXPECT_EQ(ask("004#FFFFFFFFFFFFFFFC").substr(0, 2), "14");
  EXPECT_EQ(motor.advance(0.001, 1.0, 0.0), 0.0) << "enabled, no command yet";
  // kp 0, kd 0, torque 0xFFF: the most that the motor has.
  ask("004#7FFF7FF000000FFF");
  EXPECT_EQ(motor.advance(0.001, 1.0, 0.0), 10.0);
  ask("004#7FFF7FF0FFF007FF");  // kp 31.1 N·m/rad over 1 rad: beyond the torque limit
  EXPECT_EQ(motor.advance(0.001, 1.0, 0.0), -10.0);
  EXPECT_EQ(ask("104#0000803F00002041"), "") << "a position/velocity command in MIT mode";
  EXPECT_EQ(ask("004#FFFFFFFFFFFFFFFE").substr(2, 4), "8000") << "here is zero now";
  EXPECT_EQ(ask("004#FFFFFFFFFFFFFFFD").substr(0, 2), "04");
  EXPECT_EQ(ask("004#7FFF7FF000000FFF").substr(0, 2), "04") << "a command to a disabled motor";
  EXPECT_EQ(motor.advance(0.001, 1.0, 0.0), 0.0);
}

TEST_F(SimulatedMotorTest, EvaluatesTheMitLawFromEveryFieldOfTheFrame) {
  ask("004#FFFFFFFFFFFFFFFC");
  // 1.5627 rad, 7.5092 rad/s, kp 35.5311, kd 1.35531, torque -0.57875 N·m
  ask("004#9000A00123456789");
  EXPECT_NEAR(motor.advance(0.001, 1.5, 7.0), 2.3396326, 1e-6);
  EXPECT_EQ(ask("7FF#0400CC0000000000").substr(0, 12), "148F5C9DD9DF");
}

TEST_F(SimulatedMotorTest, AppliesNoTorqueWhenItsModeOrItsZeroChangesWhileEnabled) {
  ask("004#FFFFFFFFFFFFFFFC");
  motor.advance(0.001, 1.0, 0.0);  // moved here by hand, without gains
  ask("7FF#0400550A02000000");
  EXPECT_EQ(motor.advance(0.001, 1.0, 0.0), 0.0);
  ask("104#0000803F00000040");
  ask("004#FFFFFFFFFFFFFFFE");
  EXPECT_EQ(motor.advance(0.001, 1.0, 0.0), 0.0);
}

TEST_F(SimulatedMotorTest, IgnoresNaNAndInfinity) {
  EXPECT_EQ(ask("7FF#040055040000C07F"), "0400550400000040") << "acceleration";
  EXPECT_EQ(ask("7FF#0400551B0000807F"), "0400551B00002041") << "position gain";
  ask("7FF#0400550A02000000");
  ask("004#FFFFFFFFFFFFFFFC");
  EXPECT_EQ(ask("104#0000C07F0000803F").substr(0, 2), "14");
  EXPECT_EQ(ask("104#0000803F0000C07F").substr(0, 2), "14");
  for (int k = 0; k < 3; ++k) {
    EXPECT_EQ(motor.advance(0.001, 0.0, 0.0), 0.0);
  }
}

TEST_F(SimulatedMotorTest, DisablesItselfWhenItsCommandsStop) {
  ask("7FF#04005509E8030000");  // 1000 units of 50 µs
  ask("004#FFFFFFFFFFFFFFFC");
  for (int k = 0; k < 49; ++k) {
    motor.advance(0.001, 0.0, 0.0);
  }
  EXPECT_TRUE(motor.is_enabled());
  motor.advance(0.002, 0.0, 0.0);
  EXPECT_EQ(ask("7FF#0400CC0000000000").substr(0, 2), "D4");
  EXPECT_EQ(ask("004#FFFFFFFFFFFFFFFC").substr(0, 2), "D4") << "an error must be cleared first";
  EXPECT_EQ(ask("004#FFFFFFFFFFFFFFFB").substr(0, 2), "04");
  EXPECT_EQ(ask("004#FFFFFFFFFFFFFFFC").substr(0, 2), "14");
}

}  // namespace
}  // namespace kelvara::simulation
