// Cartesian commands of the whole controller, on an arm that moves in real time.

#include <cmath>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kelvara/arm_controller.hpp"
#include "support/captured_output.hpp"
#include "support/simulated_hardware.hpp"
#include "support/waiting.hpp"

namespace {

using kelvara::damiao_motor::MIT_MODE;

TEST(PoseCommands, MoveTheToolAndReadItBack) {
  CapturedOutput output;
  SimulatedHardware hardware(false, {.with_gripper = false, .load_kg = 0.0, .start = {}});
  hardware.live();
  ArmController arm(false, TestBus::kInterface, false, MIT_MODE);
  const auto reaches = [&](double x, double y, double z) {
    return eventually([&] {
      const auto pose = arm.get_end_effector_pose();
      return std::hypot(pose[0] - x, pose[1] - y, pose[2] - z) < 0.005;
    });
  };
  ASSERT_TRUE(reaches(0.60313, 0.0, 0.3725));
  arm.set_end_effector_pose({0.45, 0.15, 0.30}, {0.0, 0.2, 0.3}, 0.8);
  EXPECT_TRUE(reaches(0.45, 0.15, 0.30));
  arm.move_joint_waypoints({{0.2, 0.1, 0.1, 0, 0, 0}, {0, 0, 0, 0, 0, 0}}, 0.0, 1.0, 400.0);
  EXPECT_TRUE(reaches(0.60313, 0.0, 0.3725));
  // A time that is too short is reported, joint by joint, and kept.
  arm.move_joint_waypoints({{0.3, 0, 0, 0, 0.5, 0}}, 0.2, 0.0, 400.0);
  EXPECT_TRUE(reaches(0.5105, 0.28538, 0.3725));
  const std::string report = "[move_joint_waypoints] requested time_sec=0.2 exceeds joint ";
  EXPECT_THAT(output.err(), ::testing::HasSubstr(report + "1 trajectory limits: vmax "));
  EXPECT_THAT(output.err(), ::testing::HasSubstr(report + "5 trajectory limits: vmax "));
  EXPECT_THAT(output.err(), ::testing::Not(::testing::HasSubstr(report + "2")));
  for (int k = 0; k < 100; ++k) {
    arm.set_end_effector_pose_raw({0.55, 0.0, 0.35}, {0.0, 0.0, 0.0});
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_TRUE(reaches(0.55, 0.0, 0.35));
  // A pose out of reach, not finite or of the wrong size moves nothing.
  arm.set_end_effector_pose({5, 0, 0}, {0, 0, 0}, 1.0);
  EXPECT_THAT(output.out(), ::testing::EndsWith("雅可比逆解失败。\n"));
  arm.set_end_effector_pose_raw({NAN, 0, 0}, {0, 0, 0});
  arm.set_end_effector_pose_raw({0.5, 0}, {0, 0, 0});
  EXPECT_THROW(arm.set_end_effector_pose({0, 0}, {0, 0}, 1.0), std::invalid_argument);
  EXPECT_THROW(arm.solve_ik({0, 0, 0}, {0, 0, 0}, {0, 0, 0, 0, 0}), std::invalid_argument);
  EXPECT_THROW(arm.move_joint_waypoints({}, 0, 0, 400), std::invalid_argument);
  EXPECT_THROW(arm.move_joint_waypoints({{0}}, 0, 1.5, 400), std::invalid_argument);
  EXPECT_THROW(arm.move_joint_waypoints({{0}}, 0, 1, 400), std::invalid_argument);
  EXPECT_FALSE(arm.solve_ik({5, 0, 0}, {0, 0, 0}, {}));
  const auto solution = arm.solve_ik({0.55, 0.0, 0.35}, {0, 0, 0}, {});
  ASSERT_TRUE(solution);
  EXPECT_LT((Eigen::Map<const Eigen::VectorXd>(solution->data(), 6) - arm.get_joint()).norm(),
            0.05);
  EXPECT_TRUE(reaches(0.55, 0.0, 0.35));
}

}  // namespace
