#include "simulation/simulated_arm/simulated_arm.hpp"

#include <vector>

#include <gtest/gtest.h>

#include "support/test_bus.hpp"

namespace kelvara::simulation {
namespace {

using Joints = SimulatedArm::Joints;

TEST(SimulatedArmTest, RestsInItsCradleUntilEnabledAndSinksOnceDisabled) {
  SimulatedArm arm(load_robot_description(), {});
  EXPECT_EQ(arm.motor_count(), 7U);
  std::vector<canfd_frame> replies;
  arm.advance(std::chrono::seconds(1));
  EXPECT_EQ(arm.joint_positions(), Joints{});
  arm.receive(to_raw(parse_frame("002#FFFFFFFFFFFFFFFC")), replies);
  arm.advance(std::chrono::microseconds(999));
  EXPECT_EQ(arm.joint_positions(), Joints{}) << "no whole millisecond has passed";
  arm.advance(std::chrono::microseconds(1));
  EXPECT_NE(arm.joint_positions(), Joints{});
  arm.receive(to_raw(parse_frame("002#FFFFFFFFFFFFFFFD")), replies);
  arm.advance(std::chrono::seconds(1));
  EXPECT_GT(arm.joint_positions()[1], 0.3);
}

}  // namespace
}  // namespace kelvara::simulation
