#include "kinematics/six_joint_chain.hpp"

#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "kelvara/kinematics/kinematics.hpp"
#include "support/edited_description.hpp"
#include "support/outcomes.hpp"

namespace {

using kelvara::JointArray;

JointArray random_joints(std::mt19937& random, double range = 3.0) {
  JointArray q;
  for (double& angle : q) {
    angle = std::uniform_real_distribution<double>(-range, range)(random);
  }
  return q;
}

Eigen::Matrix4d transform_of(const kelvara::Pose& pose) {
  return t_from_xyzrpy(Eigen::Vector3d(pose.position.data()), Eigen::Vector3d(pose.rpy.data()));
}

TEST(SixJointChain, PoseEqualsTheProductOfExponentialsAlsoNearAPitchOfNinetyDegrees) {
  const RobotKinematics model;
  std::mt19937 random(5);
  for (int trial = 0; trial < 1000; ++trial) {
    JointArray q = random_joints(random);
    if (trial % 2 == 0) {  // the tool points up, or nearly
      q[3] = -M_PI / 2 - q[1] - q[2];
      q[4] = trial % 4 == 0 ? 0.0 : std::pow(10.0, -4.0 * std::abs(q[4]));
    }
    const Eigen::VectorXd angles = Eigen::Map<const Eigen::VectorXd>(q.data(), 6);
    const kelvara::Pose pose = model.pose(q);
    EXPECT_LT((transform_of(pose) - model.forward_kinematics(angles)).norm(), 1e-11)
        << angles.transpose();
    EXPECT_LE(std::abs(pose.rpy[1]), M_PI / 2);
  }
}

TEST(SixJointChain, JacobianIsTheDerivativeOfThePose) {
  const RobotKinematics model;
  std::mt19937 random(6);
  constexpr double kStep = 1e-6;
  for (int trial = 0; trial < 100; ++trial) {
    const JointArray q = random_joints(random);
    const auto J = model.jacobian(q);
    const Eigen::Matrix3d R = transform_of(model.pose(q)).topLeftCorner<3, 3>();
    for (std::size_t j = 0; j < 6; ++j) {
      JointArray before = q, after = q;
      before[j] -= kStep, after[j] += kStep;
      const Eigen::Matrix4d slope =
          (transform_of(model.pose(after)) - transform_of(model.pose(before))) / (2.0 * kStep);
      const Eigen::Matrix3d spin = slope.topLeftCorner<3, 3>() * R.transpose();
      const std::array<double, 6> expected{slope(0, 3), slope(1, 3), slope(2, 3),
                                           spin(2, 1),  spin(0, 2),  spin(1, 0)};
      for (std::size_t row = 0; row < 6; ++row) {
        EXPECT_NEAR(J[row][j], expected[row], 1e-8) << row << ' ' << j;
      }
    }
  }
}

TEST(SixJointChain, SlidesPrismaticJointsAndRefusesAnotherNumberOfJoints) {
  const EditedDescription edited;
  edited.edit_urdf("name=\"joint3\" type=\"revolute\"", "name=\"joint3\" type=\"prismatic\"");
  RobotKinematics model;
  const JointArray q{0.3, -0.4, 0.05, 0.6, -0.7, 0.8};
  const std::vector<double> expected = model.forwardKinematics_kdl({q.begin(), q.end()});
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_NEAR(model.pose(q).position[i], expected[i], 1e-12);
  }
  EXPECT_EQ(model.jacobian(q)[3][2], 0.0);

  edited.edit_urdf("name=\"joint3\" type=\"revolute\"", "name=\"joint3\" type=\"fixed\"");
  const RobotKinematics five;
  EXPECT_EQ(error_of([&] { five.pose(q); }),
            "the chain has 5 moving joints; only a chain of six has poses of six angles");
}

}  // namespace
