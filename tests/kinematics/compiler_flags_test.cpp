// The model through the shared library, in a program whose compiler flags give Eigen another
// alignment and another allocator than the library's.

#include <cstdint>
#include <vector>

#include <Eigen/Geometry>
#include <gtest/gtest.h>

#include "kelvara/kinematics/kinematics.hpp"

namespace {

static_assert(EIGEN_MAX_ALIGN_BYTES > 16, "the flags of this program differ from the library's");

const std::vector<double> kAngles{0.6, 0.5, -0.4, 0.5, -0.6, 0.8};

struct CompilerFlags : ::testing::Test {
  RobotKinematics model;
  Eigen::VectorXd q = Eigen::Map<const Eigen::VectorXd>(kAngles.data(), 6);
  Eigen::Matrix4d T = model.forward_kinematics(q);
};

TEST_F(CompilerFlags, LeaveForwardKinematicsAlike) {
  const std::vector<double> pose = model.forwardKinematics_kdl(kAngles);
  const Eigen::Quaterniond rotation(pose[6], pose[3], pose[4], pose[5]);
  EXPECT_TRUE((T.topRightCorner<3, 1>().isApprox(Eigen::Vector3d(pose.data()), 1e-12)));
  EXPECT_TRUE((T.topLeftCorner<3, 3>().isApprox(rotation.toRotationMatrix(), 1e-9)));
  Eigen::Matrix4d product = Eigen::Matrix4d::Identity();
  for (std::size_t i = 0; i < kAngles.size(); ++i) {
    EXPECT_EQ(model.screw_axes()[i].head<3>(), model.joint_axes()[i]);
    const Eigen::Vector3d moment = model.joint_points()[i].cross(model.joint_axes()[i]);
    EXPECT_LT((model.screw_axes()[i].tail<3>() - moment).norm(), 1e-12);
    product *= exp_se3(model.screw_axes()[i], kAngles[i]);
  }
  EXPECT_TRUE((product * model.home()).isApprox(T, 1e-12));
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&model.home()) % 64, 0U);
}

TEST_F(CompilerFlags, LeaveTheJacobianSolverAlike) {
  const Eigen::Vector3d rpy = model.rotation_matrix_to_euler(T.topLeftCorner<3, 3>());
  RobotKinematics::IkResult result = model.inverse_kinematics_jacobian(
      T.topRightCorner<3, 1>(), rpy, q + Eigen::VectorXd::Constant(6, 0.1), 1e-6, 1e-6, 100, 0.005);
  ASSERT_TRUE(result.success);
  EXPECT_TRUE(model.forward_kinematics(result.q).isApprox(T, 1e-5));
  result.q.resize(100);  // freed and allocated again, by this program's Eigen
  EXPECT_THROW(model.forward_kinematics(result.q), std::runtime_error);
}

TEST_F(CompilerFlags, LeaveRotationsAlike) {
  const Eigen::Vector3d xyz(1, 2, 3);
  const Eigen::Vector3d rpy(0.4, -0.3, 1.2);
  const Eigen::Matrix4d made = t_from_xyzrpy(xyz, rpy);
  const Eigen::Matrix3d R = made.topLeftCorner<3, 3>();
  EXPECT_EQ((made.topRightCorner<3, 1>()), xyz);
  EXPECT_TRUE(model.rotation_matrix_to_euler(R).isApprox(rpy, 1e-12));
  const Eigen::Vector4d xyzw = model.rotation_matrix_to_quaternion(R);
  EXPECT_TRUE(Eigen::Quaterniond(xyzw).toRotationMatrix().isApprox(R, 1e-12));
  const Eigen::Vector3d error = model.quaternion_error(xyzw, Eigen::Vector4d::UnitW());
  EXPECT_TRUE(Eigen::AngleAxisd(error.norm(), error.normalized()).matrix().isApprox(R, 1e-12));
}

}  // namespace
