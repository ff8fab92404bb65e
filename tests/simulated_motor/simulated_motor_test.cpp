#include "simulation/simulated_motor/simulated_motor.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <gtest/gtest.h>

#include "support/virtual_bus.hpp"

namespace kelvara::simulation {
namespace {

constexpr MotorModel kModel{12.5, 30.0, 10.0, 3.0};

struct SimulatedMotorTest : ::testing::Test {
  /// The answer to a frame as candump would write it; "" without one.
  std::string ask(const std::string& text) {
    const BusFrame frame = parse_frame(text);
    canfd_frame raw{};
    raw.can_id = frame.id;
    raw.len = static_cast<std::uint8_t>(frame.data.size() / 2);
    for (std::size_t i = 0; i < raw.len; ++i) {
      raw.data[i] = static_cast<std::uint8_t>(std::stoul(frame.data.substr(2 * i, 2), nullptr, 16));
    }
    const auto reply = motor.handle(raw);
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

TEST_F(SimulatedMotorTest, AnswersRegisterTraffic) {
  EXPECT_EQ(ask("7FF#0400330A00000000"), "0400330A01000000");
  EXPECT_EQ(ask("7FF#0400550A02000000"), "0400550A02000000");
  EXPECT_EQ(motor.control_mode(), 2U);
  EXPECT_EQ(ask("7FF#0400550A09000000"), "0400550A02000000") << "no such mode";
  EXPECT_EQ(ask("7FF#040055040000F041"), "040055040000F041");
  EXPECT_EQ(ask("7FF#0400330400000000"), "040033040000F041");
  EXPECT_EQ(ask("7FF#0500330400000000"), "") << "another motor's";
  EXPECT_EQ(ask("7FF#0401330400000000"), "") << "another motor's";
}

TEST_F(SimulatedMotorTest, EnablesDisablesAndObeysOnlyItsMode) {
  motor.advance(0.001, 1.0, 0.0);
  EXPECT_EQ(ask("7FF#0400CC0000000000").substr(0, 10), "048A3D8008");
  EXPECT_EQ(ask("004#FFFFFFFFFFFFFFFC").substr(0, 2), "14");
  EXPECT_EQ(motor.advance(0.001, 1.0, 0.0), 0.0) << "enabled, nothing asked yet";
  // kp 0, kd 0, torque 0xFFF: all that the motor has.
  ask("004#7FFF7FF000000FFF");
  EXPECT_EQ(motor.advance(0.001, 1.0, 0.0), 10.0);
  ask("004#7FFF7FF0FFF007FF");  // kp 31.1 N·m/rad, to zero from 1 rad: more than there is
  EXPECT_EQ(motor.advance(0.001, 1.0, 0.0), -10.0);
  EXPECT_EQ(ask("104#0000803F00002041"), "") << "a position/velocity command in MIT mode";
  EXPECT_EQ(ask("004#FFFFFFFFFFFFFFFE").substr(2, 4), "8000") << "here is zero now";
  EXPECT_EQ(ask("004#FFFFFFFFFFFFFFFD").substr(0, 2), "04");
  EXPECT_EQ(motor.advance(0.001, 1.0, 0.0), 0.0);
}

TEST_F(SimulatedMotorTest, EvaluatesTheMitLawFromEveryFieldOfTheFrame) {
  ask("004#FFFFFFFFFFFFFFFC");
  // 1.5627 rad, 7.5092 rad/s, kp 35.5311, kd 1.35531, torque -0.57875 N·m
  ask("004#9000A00123456789");
  EXPECT_NEAR(motor.advance(0.001, 1.5, 7.0), 2.3396326, 1e-6);
  EXPECT_EQ(ask("7FF#0400CC0000000000").substr(0, 12), "148F5C9DD9DF");
}

TEST_F(SimulatedMotorTest, StaysWhereItIsWhenItsModeOrItsZeroChangesUnderPower) {
  ask("004#FFFFFFFFFFFFFFFC");
  motor.advance(0.001, 1.0, 0.0);  // carried here by hand, with no gains
  ask("7FF#0400550A02000000");
  EXPECT_EQ(motor.advance(0.001, 1.0, 0.0), 0.0);
  ask("104#0000803F00000040");
  ask("004#FFFFFFFFFFFFFFFE");
  EXPECT_EQ(motor.advance(0.001, 1.0, 0.0), 0.0);
}

TEST_F(SimulatedMotorTest, IgnoresWhatIsNoNumber) {
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

TEST_F(SimulatedMotorTest, LetsGoWhenItsCommandsStop) {
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

TEST_F(SimulatedMotorTest, FailsInTheWaysThatTestsAskFor) {
  motor.drop_next_replies(2);
  EXPECT_EQ(ask("7FF#0500CC0000000000"), "") << "another motor's, and no answer to lose";
  EXPECT_EQ(ask("004#FFFFFFFFFFFFFFFC"), "");
  EXPECT_TRUE(motor.is_enabled()) << "only the answer was lost";
  EXPECT_EQ(ask("7FF#0400CC0000000000"), "");
  EXPECT_EQ(ask("004#7FFF7FF000000FFF").substr(0, 2), "14");
  motor.raise_error(0xE);
  EXPECT_EQ(motor.advance(0.001, 0.0, 0.0), 0.0);
  EXPECT_EQ(ask("7FF#0400CC0000000000").substr(0, 2), "E4");
  motor.set_silent(true);
  EXPECT_EQ(ask("004#FFFFFFFFFFFFFFFB"), "");
  EXPECT_EQ(motor.error(), 0xEU) << "a silent motor does not obey";
}

/// One joint by itself: inertia, friction of both kinds and the weight of an arm held level.
struct LoadedJoint {
  double inertia, weight, friction;  // kg·m², N·m, N·m
  double position = 0.0, velocity = 0.0;

  void step(SimulatedMotor& motor) {
    const double drag = friction * (std::tanh(velocity / 0.005) + velocity);
    const double torque =
        motor.advance(0.001, position, velocity) - weight * std::cos(position) - drag;
    velocity += 0.001 * torque / inertia;
    position += 0.001 * velocity;
  }
};

canfd_frame position_velocity_frame(float position, float velocity_limit) {
  canfd_frame frame{};
  frame.can_id = 0x104;
  frame.len = 8;
  std::memcpy(frame.data, &position, 4);
  std::memcpy(frame.data + 4, &velocity_limit, 4);
  return frame;
}

TEST_F(SimulatedMotorTest, PositionVelocityModeIsATrapezoidThatHoldsAWeight) {
  ask("7FF#0400550A02000000");
  ask("7FF#040055040000A040");  // acceleration 5 rad/s²
  ask("7FF#0400550500002040");  // deceleration 2.5 rad/s²
  ask("7FF#0400551B00002042");  // position gain 40 1/s
  ask("004#FFFFFFFFFFFFFFFC");
  ask("104#0000803F0000003F");  // to 1 rad at 0.5 rad/s
  LoadedJoint joint{0.05, 3.0, 0.12};
  double fastest = 0.0;
  double furthest = 0.0;
  double arrived = 0.0;
  for (int k = 0; k < 4000; ++k) {
    joint.step(motor);
    fastest = k > 500 ? std::max(fastest, joint.velocity) : 0.0;  // the weight is caught by then
    furthest = std::max(furthest, joint.position);
    arrived = joint.position < 0.99 ? k * 0.001 : arrived;
  }
  EXPECT_NEAR(joint.position, 1.0, 1e-3);
  EXPECT_NEAR(fastest, 0.5, 0.05);
  EXPECT_LT(furthest, 1.01);
  // 2 s at full speed, and half a ramp at either end but for its last 0.01 rad
  EXPECT_NEAR(arrived, 2.06, 0.01);
}

TEST_F(SimulatedMotorTest, FollowsAStreamedMoveAndHoldsItsEnd) {
  struct Drive {
    MotorModel model;
    double deceleration;
    std::string ramp, gain;  // as floats on the wire
    LoadedJoint joint;
  };
  for (Drive drive : {Drive{{12.5, 8, 28, 40}, 15, "00007041", "00007042", {0.8, 16.0, 0.4}},
                      Drive{{12.5, 30, 10, 3}, 30, "0000F041", "0000A042", {0.05, 3.0, 0.12}}}) {
    SCOPED_TRACE(drive.model.tmax);
    motor = SimulatedMotor(drive.model, 4, 0x14);
    ask("7FF#0400550A02000000");
    ask("7FF#04005504" + drive.ramp);
    ask("7FF#04005505" + drive.ramp);
    ask("7FF#0400551B" + drive.gain);
    ask("004#FFFFFFFFFFFFFFFC");
    double worst = 0.0;
    double furthest = 0.0;
    for (int k = 0; k < 4000; ++k) {  // a second to catch the weight, two to move, one to hold
      const double s = std::clamp((k - 1000) / 2000.0, 0.0, 1.0);
      const double blend = s * s * s * s * (35.0 + s * (-84.0 + s * (70.0 - 20.0 * s)));
      const double rate = 140.0 * std::pow(s * (1.0 - s), 3) / 2.0;
      if (k >= 1000 && (k % 5 == 0 || k % 5 == 2)) {  // 2 and 3 ms in turn
        motor.handle(position_velocity_frame(static_cast<float>(0.8 * blend),
                                             s < 1.0 ? static_cast<float>(0.8 * rate) : 10.5F));
      }
      drive.joint.step(motor);
      worst = k > 1000 ? std::max(worst, std::abs(drive.joint.position - 0.8 * blend)) : 0.0;
      furthest = std::max(furthest, drive.joint.position);
    }
    // A profile that could stop at each point trails by its braking distance at full speed.
    EXPECT_NEAR(worst, std::pow(0.8 * 140.0 / 64.0 / 2.0, 2) / (2.0 * drive.deceleration), 0.003);
    EXPECT_LT(furthest, 0.81);
    EXPECT_NEAR(drive.joint.position, 0.8, 0.001);
  }
}

}  // namespace
}  // namespace kelvara::simulation
