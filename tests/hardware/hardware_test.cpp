#include <cmath>

#include <gtest/gtest.h>

#include "hardware/jaw_geometry.hpp"
#include "kelvara/hardware/kelvara.hpp"
#include "support/captured_output.hpp"
#include "support/test_bus.hpp"

namespace kelvara::can::socket {
namespace {

using damiao_motor::MotorType;

double commanded_angle(const BusFrame& frame) {
  return damiao_motor::uint_to_double(
      static_cast<std::uint16_t>(std::stoul(frame.data.substr(0, 4), nullptr, 16)), -12.5, 12.5,
      16);
}

TEST(JawGeometry, AngleAndDistanceAreInverse) {
  for (double distance = 0.0; distance <= 0.085; distance += 0.0005) {
    EXPECT_NEAR(jaw_distance_from_angle(jaw_angle_from_distance(distance)), distance, 1e-6);
  }
  // The fully open jaws stand where the motor's opening ends.
  EXPECT_NEAR(jaw_angle_from_distance(0.085), -1.235463, 2e-3);
  EXPECT_NEAR(jaw_angle_from_distance(0.0), 0.0, 2e-3);
  CapturedOutput output;
  EXPECT_EQ(jaw_distance_from_angle(1.056071 + M_PI / 2), -1.0);
  EXPECT_EQ(output.err().rfind("Error: Kinematics singularity, sqrt arg=", 0), 0U) << output.err();
}

TEST(Gripper, CommandsOneMitFrameForEachRequestOnceItHasAMotor) {
  TestBus bus;
  BusPeer peer;
  Kelvara hardware(TestBus::kInterface, false);
  GripperComponent& gripper = hardware.get_gripper();
  gripper.open(1, 1);
  gripper.set_distance(0.04, 1, 1);
  gripper.set_tau(1);
  EXPECT_TRUE(peer.receive().empty());

  hardware.init_gripper_motor(MotorType::V30_T10, 7, 0x17);
  CapturedOutput output;
  const std::vector<std::pair<double, double>> distances{
      {0.085, jaw_angle_from_distance(0.085)}, {0.0851, -1.0}, {-0.001, -1.0}, {NAN, -1.0}};
  for (const auto& [distance, angle] : distances) {
    gripper.set_distance(distance, 8.0, 0.1);
    const auto frames = peer.receive();
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_NEAR(commanded_angle(frames[0]), angle, 4e-4) << distance;
  }
  const std::string error = "Error: Distance out of range! Must be between 0 and 0.085 meters.\n";
  EXPECT_EQ(output.err(), error + error + error);
  for (const double opening : {0.0, 0.5, 1.0}) {
    gripper.set_position(opening, 8.0, 0.1);
    const auto frames = peer.receive();
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_NEAR(commanded_angle(frames[0]), -1.235463 * opening, 4e-4);
    EXPECT_NEAR(gripper.position_at_angle(-1.235463 * opening), opening, 1e-12);
  }
  gripper.set_tau(10);
  EXPECT_EQ(peer.receive(), (std::vector{parse_frame("007#7FFF7FF000000FFF")}));
}

TEST(Hardware, ForwardsToArmThenGripperAndDrainsWhatArrives) {
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
  peer.send(parse_frame("3FF#00"));  // nobody's
  peer.send(parse_frame("2B2#12FFFF8008001F1D"));
  peer.send(parse_frame("2B7#17FFFF8008001F1D"));
  hardware.recv_all(200'000);
  EXPECT_EQ(hardware.get_arm().get_motors()[1].position, 12.5);
  EXPECT_EQ(hardware.get_gripper().get_motors()[0].position, 12.5);

  // A second motor under the same identifier takes the first one's place.
  hardware.get_gripper().init_motor_device(MotorType::V30_T10, 8, 0x2B7, false);
  hardware.get_gripper().enable_all();
  EXPECT_EQ(peer.receive(), (std::vector{parse_frame("008#FFFFFFFFFFFFFFFC")}));
}

}  // namespace
}  // namespace kelvara::can::socket
