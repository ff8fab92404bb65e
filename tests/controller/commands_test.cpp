// What does not need a running loop: the torque watch, the gripper's commands, sampled moves.

#include <cmath>
#include <limits>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/arm_controller_impl.hpp"
#include "controller/torque_monitor.hpp"
#include "support/captured_output.hpp"
#include "support/simulated_hardware.hpp"

namespace {

using kelvara::controller::JointArray;
using kelvara::controller::TorqueWatch;
using kelvara::damiao_motor::MIT_MODE;

constexpr double kPass = 0.020;

/// Steps the watch for some seconds; the time of the first warning and of the stop, -1 for none.
std::pair<double, double> watch_for(TorqueWatch& watch, double seconds, const JointArray& torque) {
  std::pair<double, double> first{-1.0, -1.0};
  for (int pass = 1; pass * kPass <= seconds + 1e-9; ++pass) {
    for (const auto& finding : watch.step(kPass, torque)) {
      double& time = finding.stop ? first.second : first.first;
      time = time < 0.0 ? pass * kPass : time;
    }
  }
  return first;
}

TEST(TorqueWatch, WarnsAfterTwoSecondsAndStopsAfterSixAboveTheThreshold) {
  const JointArray thresholds{20, 20, 20, 8, 6, 6};
  for (std::size_t joint = 0; joint < 6; ++joint) {
    for (const double sign : {1.0, -1.0}) {
      TorqueWatch watch;
      JointArray torque{};
      torque[joint] = sign * thresholds[joint];
      EXPECT_EQ(watch_for(watch, 8.0, torque), std::pair(-1.0, -1.0)) << "exactly at the threshold";
      torque[joint] *= 1.01;
      const auto [warned, stopped] = watch_for(watch, 8.0, torque);
      // The average takes up to a window to rise above the threshold.
      EXPECT_NEAR(warned, 2.0, 0.22) << "joint " << joint + 1;
      EXPECT_NEAR(stopped, 6.0, 0.22) << "joint " << joint + 1;
    }
  }
}

TEST(TorqueWatch, StartsOverWhenTheAverageDropsOnceAndIgnoresShortSpikes) {
  TorqueWatch watch;
  const JointArray high{0, 25, 0, 0, 0, 0};
  EXPECT_EQ(watch_for(watch, 5.9, high).second, -1.0);
  watch.step(kPass, {0, -200, 0, 0, 0, 0});  // one pass that brings the average down
  const auto [warned, stopped] = watch_for(watch, 5.9, high);
  EXPECT_GT(warned, 1.9);
  EXPECT_EQ(stopped, -1.0);
  TorqueWatch spikes;
  for (int k = 0; k < 100; ++k) {
    EXPECT_EQ(watch_for(spikes, 0.1, high).first, -1.0);
    EXPECT_EQ(watch_for(spikes, 0.1, {}).first, -1.0);
  }
}

TEST(TorqueWatch, EndsThePassAtTheFirstJointThatCallsForAStop) {
  TorqueWatch watch;
  const JointArray high{25, 25, 0, 0, 0, 0};
  watch_for(watch, 5.99, high);
  const auto& findings = watch.step(0.1, high);
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_EQ(findings[0].joint, 0U);
  EXPECT_TRUE(findings[0].stop);
}

struct Gripper : ::testing::Test {
  Gripper() {
    hardware.answer();
    impl =
        std::make_unique<ArmController::Impl>(TestBus::kInterface, false, nullptr, true, MIT_MODE);
  }
  SimulatedHardware hardware{false};
  std::unique_ptr<ArmController::Impl> impl;
};

TEST_F(Gripper, ClampsDistanceSpeedAndForceAndKeepsWhatIsNotGiven) {
  const auto& command = impl->command;
  EXPECT_EQ(command.gripper_speed, 8.0);
  EXPECT_EQ(command.gripper_force, 0.1);
  EXPECT_FALSE(command.gripper_command_valid);
  impl->publish_gripper_distance_command(40, 5, 0.5);
  EXPECT_EQ(command.gripper_target_distance, 0.085);
  impl->publish_gripper_distance_command(-1);
  EXPECT_EQ(command.gripper_target_distance, 0.0);
  EXPECT_EQ(command.gripper_speed, 5.0);
  EXPECT_EQ(command.gripper_force, 0.5);
  impl->publish_gripper_distance_command(0.04, 50, 0);
  EXPECT_EQ(command.gripper_speed, 20.0);
  EXPECT_EQ(command.gripper_force, 0.1);
  EXPECT_TRUE(command.gripper_command_valid && command.gripper_command_active);
  impl->publish_gripper_distance_command(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(command.gripper_target_distance, 0.0);
}

TEST_F(Gripper, GravityCommandsDropTheTrajectoryAndKeepTheTarget) {
  impl->publish_joint_raw_command(std::vector<double>(6, 0.3), std::vector<double>(6, 1.0));
  impl->command.waypoints =
      std::make_shared<const std::vector<kelvara::controller::WaypointTrajectorySample>>(1);
  impl->publish_kdl_gravity_comp_command();
  EXPECT_EQ(impl->command.command_type, 5);
  EXPECT_EQ(impl->command.waypoints, nullptr);
  EXPECT_EQ(impl->command.target_dq, JointArray{});
  EXPECT_EQ(impl->command.target_q[0], 0.3);
  impl->publish_gravity_comp_command();
  EXPECT_EQ(impl->command.command_type, 4);
}

TEST(SepticTrajectory, SamplesAMoveFromRestToRest) {
  const auto whole = ArmController::generate_septuple_trajectory({0.5}, {1.5}, 1.0, 200.0);
  ASSERT_EQ(whole.time.size(), 201U);
  EXPECT_EQ(whole.time.back(), 1.0);
  ASSERT_EQ(whole.joints.size(), 6U);
  const auto& series = whole.joints[5];
  EXPECT_NEAR(series[0][100], 1.0, 1e-12);
  EXPECT_NEAR(series[1][100], 2.1875, 1e-12);
  EXPECT_EQ(series[0].back(), 1.5);
  EXPECT_EQ(series[1].back(), 0.0);
  for (std::size_t k = 1; k < 200; ++k) {
    const double slope = (series[0][k + 1] - series[0][k - 1]) / 0.01;
    const double bend = (series[1][k + 1] - series[1][k - 1]) / 0.01;
    EXPECT_NEAR(series[1][k], slope, 5e-4) << k;
    EXPECT_NEAR(series[2][k], bend, 5e-3) << k;
  }
  const auto shortest = ArmController::generate_septuple_trajectory({0, 1, 2, 3, 4, 5},
                                                                    {0, 0, 0, 0, 0, 0}, 0.001, 100);
  EXPECT_EQ(shortest.time, (std::vector<double>{0.0, 0.001}));
  EXPECT_EQ(shortest.joints[3][0], (std::vector<double>{3.0, 0.0}));
}

TEST(SepticTrajectory, RefusesBadArgumentsInOrder) {
  const auto error = [](std::size_t starts, std::size_t ends, double tf, double freq) {
    try {
      ArmController::generate_septuple_trajectory(std::vector<double>(starts),
                                                  std::vector<double>(ends), tf, freq);
    } catch (const std::exception& what) {
      return std::string(what.what());
    }
    return std::string();
  };
  EXPECT_EQ(error(6, 1, 0, 0), "q_start/q_end length must be num_joints or 1");
  EXPECT_EQ(error(1, 1, 0, 0), "tf must be positive");
  EXPECT_EQ(error(6, 6, 1, 0), "freq must be positive");
  EXPECT_EQ(error(6, 6, 1e300, 1e300), "tf and freq ask for too many samples");
  EXPECT_EQ(error(6, 6, std::numeric_limits<double>::quiet_NaN(), 100),
            "tf and freq ask for too many samples");
  EXPECT_EQ(error(6, 6, 1e-50, 1), "tf or freq is too extreme to compute with");
  EXPECT_EQ(error(6, 6, 1, 1e-310), "tf or freq is too extreme to compute with");
}

}  // namespace
