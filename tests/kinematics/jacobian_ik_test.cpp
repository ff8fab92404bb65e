// Both inverse kinematics on reachable poses, and how the Jacobian solver ends.

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

#include <Eigen/Geometry>
#include <gtest/gtest.h>

#include "kelvara/kinematics/kinematics.hpp"
#include "support/captured_output.hpp"

namespace {

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

}  // namespace
