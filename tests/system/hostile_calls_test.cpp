// Calls with invalid or extreme arguments, and in any order: none crashes, hangs, or moves the arm
// by surprise.

#include <cmath>
#include <functional>
#include <limits>
#include <stdexcept>

#include <gtest/gtest.h>

#include "controller/pose_solvers.hpp"
#include "support/closed_loop.hpp"
#include "support/waiting.hpp"

namespace {

using kelvara::damiao_motor::MIT_MODE;
using Values = std::vector<double>;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kLargest = std::numeric_limits<double>::max();
constexpr double kSmallest = std::numeric_limits<double>::denorm_min();
const double kNan = std::nan("");
const Values kZero(6, 0.0);
const Values kLevel(3, 0.0);

/// Six values, one of them as given.
Values six_with(double value) {
  Values values(6, 0.1);
  values[4] = value;
  return values;
}

struct HostileCalls : ::testing::Test {
  HostileCalls() {
    hardware.live();
    arm = std::make_unique<ArmController>(true, TestBus::kInterface, false, MIT_MODE);
    wait(2200);  // it is home
  }

  static void wait(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
  }

  /// Every public call once, with harmless arguments.
  std::vector<std::function<void()>> every_call() {
    return {[this] { arm->set_joint(kZero, 1.0); },
            [this] { arm->set_joint_raw(kZero, kZero); },
            [this] { arm->move_joint_waypoints({kZero}, 1.0, 0.0, 400.0); },
            [this] {
              arm->set_end_effector_pose({0.5, 0.0, 0.3}, kLevel, 1.0);
            },
            [this] {
              arm->set_end_effector_pose_raw({0.5, 0.0, 0.3}, kLevel);
            },
            [this] {
              arm->solve_ik({0.5, 0.0, 0.3}, kLevel, kZero);
            },
            [this] { arm->get_end_effector_pose(); },
            [this] { arm->identify_gravity_compensation(); },
            [this] { arm->identify_gravity_compensation_kdl(); },
            [this] { arm->openGripper(); },
            [this] { arm->closeGripper(); },
            [this] { arm->setGripperPosition(0.5); },
            [this] { arm->setGripperPosition_raw(0.5); },
            [this] { arm->setGripperDistance(0.04); },
            [this] { arm->setGripperDistance(0.04, 1.0, 0.5); },
            [this] { arm->get_gripper_position(); },
            [this] { arm->get_gripper_distance(); },
            [this] { arm->get_joint(); },
            [this] { arm->get_joint_velocities(); },
            [this] { arm->get_joint_torques(); }};
  }

  CapturedOutput output;
  SimulatedHardware hardware{false, {.with_gripper = true, .load_kg = 0.0, .start = {}}};
  std::unique_ptr<ArmController> arm;
};

TEST_F(HostileCalls, WithInvalidArgumentsMoveNothing) {
  for (const double bad : {kNan, kInfinity, -kInfinity}) {
    EXPECT_THROW(arm->set_joint(six_with(bad), 1.0), std::invalid_argument);
    EXPECT_THROW(arm->set_joint_raw(six_with(bad), kZero), std::invalid_argument);
    EXPECT_THROW(arm->set_joint_raw(kZero, six_with(bad)), std::invalid_argument);
    EXPECT_THROW(arm->move_joint_waypoints({kZero, six_with(bad)}, 1.0, 0.0, 400.0),
                 std::invalid_argument);
    EXPECT_THROW(arm->move_joint_waypoints({six_with(0.1)}, 1.0, 0.0, -bad), std::exception);
    arm->set_end_effector_pose({0.5, bad, 0.3}, kLevel, 1.0);
    arm->set_end_effector_pose({0.5, 0.1, 0.3}, {0.0, 0.0, bad}, 1.0);
    arm->set_end_effector_pose_raw({bad, 0.1, 0.3}, kLevel);
    arm->set_end_effector_pose_raw({0.5, 0.1, 0.3}, {bad, 0.0, 0.0});
    EXPECT_FALSE(arm->solve_ik({0.5, bad, 0.3}, kLevel, {}));
    EXPECT_FALSE(arm->solve_ik({0.5, 0.1, 0.3}, kLevel, six_with(bad)));
  }
  for (const std::size_t size : {0U, 1U, 5U, 7U, 100000U}) {
    const Values values(size, 0.3);
    EXPECT_THROW(arm->set_joint(values, 1.0), std::invalid_argument);
    EXPECT_THROW(arm->set_joint_raw(values, values), std::invalid_argument);
    EXPECT_THROW(arm->move_joint_waypoints({values}, 1.0, 0.0, 400.0), std::invalid_argument);
    EXPECT_THROW(arm->set_end_effector_pose(values, values, 1.0), std::invalid_argument);
    EXPECT_THROW(arm->solve_ik(values, values, {}), std::invalid_argument);
    arm->set_end_effector_pose_raw(values, values);
  }
  EXPECT_THROW(arm->move_joint_waypoints({six_with(0.5)}, kLargest, 0.0, 400.0), std::length_error);
  EXPECT_THROW(arm->move_joint_waypoints({six_with(0.5)}, 0.0, kSmallest, 400.0),
               std::length_error);
  EXPECT_THROW(arm->set_joint(six_with(0.5), -kSmallest), std::invalid_argument);
  wait(200);
  EXPECT_LT(arm->get_joint().cwiseAbs().maxCoeff(), 0.01);
}

TEST_F(HostileCalls, WithExtremeNumbersStayInsideTheLimits) {
  for (const double extreme : {kLargest, -kLargest, 1e9, kSmallest}) {
    arm->set_joint(six_with(extreme), kSmallest);  // no time at all: it holds
    wait(20);
    arm->set_joint(six_with(extreme), 1.0);
    wait(20);
    arm->set_joint_raw(six_with(extreme), six_with(-extreme));
    wait(20);
    arm->set_joint(six_with(extreme), kLargest);
    arm->set_end_effector_pose_raw({extreme, 0.0, 0.3}, {extreme, 0.0, 0.0});
    arm->setGripperDistance(extreme, extreme, -extreme);
    arm->setGripperPosition(extreme);
    wait(20);
  }
  arm->setGripperDistance(kNan, kNan, kInfinity);
  arm->setGripperPosition(-kInfinity);
  arm->set_joint(six_with(1.0), kNan);  // no duration: it holds
  wait(100);
  const auto q = arm->get_joint();
  ASSERT_TRUE(q.allFinite());
  EXPECT_LT(std::abs(q[4]), 1.6) << "the limit is 1.57 rad";
  EXPECT_EQ(output.err().find("exception"), std::string::npos) << output.err();
  arm->set_joint(kZero, 1.0);
  EXPECT_TRUE(eventually([this] { return arm->get_joint().cwiseAbs().maxCoeff() < 0.02; }))
      << "it still follows commands";
}

TEST_F(HostileCalls, AfterAStopDoNothingAndAfterCleanupThrow) {
  hardware.halt();  // no arm answers any more
  for (const auto& call : every_call()) {
    EXPECT_NO_THROW(call());
  }
  arm->cleanup();
  for (const auto& call : every_call()) {
    EXPECT_THROW(call(), std::runtime_error);
  }
  arm->cleanup();
}

TEST(EarlyCalls, BeforeTheFirstFeedbackAreTakenOrRefused) {
  ClosedLoop loop(MIT_MODE);
  ArmController::Impl& impl = *loop.impl;
  std::array<double, 6> out{1, 1, 1, 1, 1, 1};
  EXPECT_FALSE(impl.state.try_get_latest_joint_state(out));
  EXPECT_FALSE(impl.state.try_get_latest_torque_state(out));
  EXPECT_EQ(out[0], 1.0);
  EXPECT_THROW(impl.publish_joint_waypoint_trajectory_command({kZero}, 1.0, 0.0, 400.0),
               std::runtime_error);
  EXPECT_TRUE(impl.poses->solve_ik({0.5, 0.1, 0.3}, kLevel, kZero));
  // What comes after an emergency stop is kept, and not obeyed.
  impl.flags.emergency_stop_flag = true;
  impl.cycle->run_cycle(loop.now);
  EXPECT_TRUE(impl.flags.exit_flag);
  impl.publish_joint_raw_command(six_with(0.5), kZero);
  impl.publish_kdl_gravity_comp_command();
  EXPECT_NO_THROW(impl.request_stop_and_join());
}

}  // namespace
