#include "controller/pose_solvers.hpp"

#include <kdl/frames.hpp>

namespace kelvara::controller {
namespace {

constexpr double kJacobianTolerance = 1e-4;  // m and rad
constexpr int kJacobianIterations = 100;
constexpr double kJacobianDamping = 0.005;

}  // namespace

std::optional<std::vector<double>> PoseSolvers::solve_by_jacobian(
    const std::vector<double>& target_pos, const std::vector<double>& target_euler,
    const JointArray& seed) const {
  const RobotKinematics::IkResult solution = model_.inverse_kinematics_jacobian(
      Eigen::Vector3d(target_pos.data()), Eigen::Vector3d(target_euler.data()),
      Eigen::Map<const Eigen::VectorXd>(seed.data(), kJointCount), kJacobianTolerance,
      kJacobianTolerance, kJacobianIterations, kJacobianDamping);
  if (!solution.success) {
    return std::nullopt;
  }
  return std::vector<double>(solution.q.begin(), solution.q.end());
}

std::optional<std::vector<double>> PoseSolvers::solve_ik(const std::vector<double>& target_pos,
                                                         const std::vector<double>& target_euler,
                                                         const std::vector<double>& seed) {
  std::vector<double> solution;
  const MutexLock lock(kinematics_mutex);
  if (!kinematics_.solve_ik_kdl(target_pos, target_euler, seed, solution) ||
      solution.size() != kJointCount) {
    return std::nullopt;
  }
  return solution;
}

std::array<double, 6> PoseSolvers::end_effector_pose(const JointArray& q) {
  std::vector<double> pose;
  {
    const MutexLock lock(kinematics_mutex);
    pose = kinematics_.forwardKinematics_kdl({q.begin(), q.end()});
  }
  std::array<double, 6> result{pose[0], pose[1], pose[2], 0.0, 0.0, 0.0};
  KDL::Rotation::Quaternion(pose[3], pose[4], pose[5], pose[6])
      .GetRPY(result[3], result[4], result[5]);
  return result;
}

}  // namespace kelvara::controller
