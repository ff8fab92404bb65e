#include "kelvara/hardware/gripper_component.hpp"

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

TEST(GripperComponent, SendsOneMitFrameForEachCommandOnceItHasAMotor) {
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
    EXPECT_NEAR(gripper.opening_at_angle(-1.235463 * opening), opening, 1e-12);
  }
  gripper.set_tau(10);
  EXPECT_EQ(peer.receive(), (std::vector{parse_frame("007#7FFF7FF000000FFF")}));
}

}  // namespace
}  // namespace kelvara::can::socket
