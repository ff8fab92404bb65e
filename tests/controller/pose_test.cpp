// Poses: the Jacobian solver, the velocity filter of streamed poses, and the calls on the bus.

#include <algorithm>
#include <array>
#include <random>
#include <vector>

#include <Eigen/Geometry>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/pose_stream.hpp"
#include "kelvara/arm_controller.hpp"
#include "kelvara/kinematics/kinematics.hpp"
#include "support/captured_output.hpp"
#include "support/simulated_hardware.hpp"

namespace {

using kelvara::controller::JointArray;
using kelvara::controller::PoseStream;
using kelvara::controller::TimePoint;
using kelvara::damiao_motor::MIT_MODE;

/// Whether both solvers reach the pose of `q` from the seed: {Jacobian, KDL}.
std::array<bool, 2> solve_both(RobotKinematics& model, const Eigen::VectorXd& q,
                               const Eigen::VectorXd& seed) {
  const Eigen::Matrix4d T = model.forward_kinematics(q);
  const Eigen::Vector3d position = T.topRightCorner<3, 1>();
  const Eigen::Vector3d euler = model.rotation_matrix_to_euler(T.topLeftCorner<3, 3>());
  const auto result =
      model.inverse_kinematics_jacobian(position, euler, seed, 1e-4, 1e-4, 100, 0.005);
  std::vector<double> from_kdl;
  const bool solved =
      model.solve_ik_kdl({position.begin(), position.end()}, {euler.begin(), euler.end()},
                         {seed.begin(), seed.end()}, from_kdl);
  const auto reaches = [&](const Eigen::VectorXd& found) {
    return (model.forward_kinematics(found) - T).cwiseAbs().maxCoeff() < 2e-4;
  };
  return {result.success && reaches(result.q),
          solved && reaches(Eigen::Map<const Eigen::VectorXd>(from_kdl.data(), 6))};
}

TEST(InverseKinematics, SolvesReachablePosesNearTheCurrentOne) {
  RobotKinematics model;
  std::mt19937 random(17);
  CapturedOutput output;
  std::uniform_real_distribution<double> nearby(-0.3, 0.3);
  const std::array<std::array<double, 6>, 3> current{
      {{0, 0, 0, 0, 0, 0}, {0.6, 0.5, -0.4, 0.5, -0.6, 0.8}, {0, 0.9, -1.0, 0.6, 0.5, 0}}};
  for (const auto& pose : current) {
    const Eigen::VectorXd seed = Eigen::Map<const Eigen::VectorXd>(pose.data(), 6);
    std::array<int, 2> solved{};
    for (int trial = 0; trial < 100; ++trial) {
      Eigen::VectorXd q = seed;
      std::for_each(q.begin(), q.end(), [&](double& angle) { angle += nearby(random); });
      const auto [jacobian, kdl] = solve_both(model, q, seed);
      solved[0] += jacobian ? 1 : 0;
      solved[1] += kdl ? 1 : 0;
    }
    EXPECT_GE(solved[0], 98) << "Jacobian from " << seed.transpose();
    EXPECT_GE(solved[1], 98) << "KDL from " << seed.transpose();
  }
}

TEST(JacobianIk, EndsWhereItsIterationsEnd) {
  const RobotKinematics model;
  CapturedOutput output;
  const Eigen::VectorXd zero = Eigen::VectorXd::Zero(6);
  const Eigen::Vector3d at_home = model.home().topRightCorner<3, 1>();
  const Eigen::Vector3d level = Eigen::Vector3d::Zero();
  EXPECT_TRUE(
      model.inverse_kinematics_jacobian(at_home, level, zero, 1e-4, 1e-4, 1, 0.005).success);
  EXPECT_EQ(output.err(), "");
  EXPECT_FALSE(
      model.inverse_kinematics_jacobian(at_home, level, zero, 1e-4, 1e-4, 0, 0.005).success);
  EXPECT_EQ(output.err(),
            "inverse_kinematics_jacobian failed: reason=failed to converge within "
            "iteration/threshold limits, max_iterations=0, threshold_pos=0.0001, "
            "threshold_rot=0.0001, damping=0.005, target_pos=[0.60313, 0, 0.3725], "
            "target_euler=[0, 0, 0]\n");
  Eigen::VectorXd far = zero;
  far[5] = 3.5;
  const auto result =
      model.inverse_kinematics_jacobian({5, 0, 0}, level, far, 1e-4, 1e-4, 20, 0.005);
  EXPECT_FALSE(result.success);
  EXPECT_LE(result.q.cwiseAbs().maxCoeff(), M_PI);
  EXPECT_FALSE(
      model.inverse_kinematics_jacobian({NAN, 0, 0}, level, zero, 1e-4, 1e-4, 5, 0.005).success);
  EXPECT_THROW(model.inverse_kinematics_jacobian(at_home, level, Eigen::VectorXd::Zero(5), 1e-4,
                                                 1e-4, 5, 0.005),
               std::runtime_error);
}

TEST(PoseStream, FiltersLimitsAndForgetsReversedVelocities) {
  PoseStream stream;
  TimePoint now{std::chrono::hours(1)};
  const auto step = [&](double angle, int milliseconds) {
    now += std::chrono::milliseconds(milliseconds);
    JointArray q{};
    q[1] = q[4] = angle;
    return stream.step(q, now);
  };
  EXPECT_EQ(step(0.5, 0), JointArray{}) << "nothing to compare with yet";
  // 0.01 rad in 5 ms is 2 rad/s; a tenth of it is new; joint 2 may change by 18 rad/s² · 5 ms.
  const JointArray second = step(0.51, 5);
  EXPECT_NEAR(second[4], 0.2, 1e-12);
  EXPECT_NEAR(second[1], 0.09, 1e-12);
  const JointArray third = step(0.52, 5);
  EXPECT_NEAR(third[4], 0.9 * 0.2 + 0.2, 1e-12);
  // Turning round cuts the memory to a fifth first.
  const JointArray back = step(0.51, 5);
  EXPECT_NEAR(back[4], 0.9 * (0.2 * third[4]) - 0.2, 1e-12);
  // A pause counts as 7.5 ms.
  const double before = stream.raw_pose_prev_dq[4];
  EXPECT_NEAR(step(0.51 - 0.0075, 1000)[4], 0.9 * before - 0.1, 1e-12);
  for (int k = 0; k < 1000; ++k) {
    EXPECT_LE(std::abs(step(k % 2 == 0 ? 0.51 : 0.51 + k * 0.1, 5)[4]), 20.9);
  }
}

TEST(PoseCommands, MoveTheToolAndReadItBack) {
  CapturedOutput output;
  SimulatedHardware hardware(false, {.with_gripper = false, .load_kg = 0.0, .start = {}});
  hardware.live();
  ArmController arm(false, TestBus::kInterface, false, MIT_MODE);
  const auto comes_to = [&](double x, double y, double z) {
    for (int tries = 0; tries < 2000; ++tries) {
      const auto pose = arm.get_end_effector_pose();
      if (std::hypot(pose[0] - x, pose[1] - y, pose[2] - z) < 0.005) {
        return true;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  };
  ASSERT_TRUE(comes_to(0.60313, 0.0, 0.3725));
  arm.set_end_effector_pose({0.45, 0.15, 0.30}, {0.0, 0.2, 0.3}, 0.8);
  EXPECT_TRUE(comes_to(0.45, 0.15, 0.30));
  arm.move_joint_waypoints({{0.2, 0.1, 0.1, 0, 0, 0}, {0, 0, 0, 0, 0, 0}}, 0.0, 1.0, 400.0);
  EXPECT_TRUE(comes_to(0.60313, 0.0, 0.3725));
  // A time that is too short is told of, joint by joint, and kept.
  arm.move_joint_waypoints({{0.3, 0, 0, 0, 0.5, 0}}, 0.2, 0.0, 400.0);
  EXPECT_TRUE(comes_to(0.5105, 0.28538, 0.3725));
  const std::string told = "[move_joint_waypoints] requested time_sec=0.2 exceeds joint ";
  EXPECT_THAT(output.err(), ::testing::HasSubstr(told + "1 trajectory limits: vmax "));
  EXPECT_THAT(output.err(), ::testing::HasSubstr(told + "5 trajectory limits: vmax "));
  EXPECT_THAT(output.err(), ::testing::Not(::testing::HasSubstr(told + "2")));
  for (int k = 0; k < 100; ++k) {
    arm.set_end_effector_pose_raw({0.55, 0.0, 0.35}, {0.0, 0.0, 0.0});
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_TRUE(comes_to(0.55, 0.0, 0.35));
  // What cannot be reached, or is no pose, moves nothing.
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
  EXPECT_TRUE(comes_to(0.55, 0.0, 0.35));
}

}  // namespace
