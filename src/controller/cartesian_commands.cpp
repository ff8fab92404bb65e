#include <algorithm>
#include <iostream>
#include <stdexcept>

#include <kdl/frames.hpp>

#include "controller/arm_controller_impl.hpp"
#include "controller/finite.hpp"

using kelvara::controller::Clock;
using kelvara::controller::JointArray;
using kelvara::controller::kJointCount;

namespace {

constexpr double kJacobianTolerance = 1e-4;  // m and rad
constexpr int kJacobianIterations = 100;
constexpr double kJacobianDamping = 0.005;

bool is_finite_triple(const std::vector<double>& values) {
  return values.size() == 3 && kelvara::controller::all_finite(values);
}

}  // namespace

void ArmController::set_end_effector_pose(const std::vector<double>& target_pos,
                                          const std::vector<double>& target_euler, double tf) {
  if (target_pos.size() != 3) {
    throw std::invalid_argument("target_pos must have exactly 3 elements.");
  }
  if (target_euler.size() != 3) {
    throw std::invalid_argument("target_euler must have exactly 3 elements.");
  }
  const RobotKinematics::IkResult solution = impl().kinematics.inverse_kinematics_jacobian(
      Eigen::Vector3d(target_pos.data()), Eigen::Vector3d(target_euler.data()), get_joint(),
      kJacobianTolerance, kJacobianTolerance, kJacobianIterations, kJacobianDamping);
  if (!solution.success) {
    std::cout << "雅可比逆解失败。" << std::endl;
    return;
  }
  set_joint({solution.q.begin(), solution.q.end()}, tf);
}

std::optional<std::vector<double>> ArmController::solve_ik(const std::vector<double>& target_pos,
                                                           const std::vector<double>& target_euler,
                                                           const std::vector<double>& q_seed) {
  if (target_pos.size() != 3 || target_euler.size() != 3) {
    throw std::invalid_argument("target_pos and target_euler must both have exactly 3 elements.");
  }
  if (!q_seed.empty() && q_seed.size() != kJointCount) {
    throw std::invalid_argument("q_seed must have exactly 6 elements when provided.");
  }
  return impl().solve_ik(target_pos, target_euler, q_seed);
}

std::optional<std::vector<double>> ArmController::Impl::solve_ik(
    const std::vector<double>& target_pos, const std::vector<double>& target_euler,
    const std::vector<double>& q_seed) {
  std::vector<double> seed = q_seed;
  if (seed.empty()) {
    JointArray measured{};
    try_get_latest_joint_state(measured);
    seed.assign(measured.begin(), measured.end());
  }
  std::vector<double> solution;
  const std::lock_guard<std::mutex> lock(kinematics_mutex);
  if (!kinematics.solve_ik_kdl(target_pos, target_euler, seed, solution) ||
      solution.size() != kJointCount) {
    return std::nullopt;
  }
  return solution;
}

void ArmController::set_end_effector_pose_raw(const std::vector<double>& target_pos,
                                              const std::vector<double>& target_euler) {
  if (!is_finite_triple(target_pos) || !is_finite_triple(target_euler)) {
    return;
  }
  const auto solution = impl().solve_ik(target_pos, target_euler, {});
  if (!solution) {
    return;
  }
  JointArray q{};
  std::copy(solution->begin(), solution->end(), q.begin());
  const JointArray dq = impl().pose_stream.step(q, Clock::now());
  set_joint_raw(*solution, {dq.begin(), dq.end()});
}

std::array<double, 6> ArmController::get_end_effector_pose() {
  const Eigen::VectorXd q = get_joint();
  std::vector<double> pose;
  {
    const std::lock_guard<std::mutex> lock(impl().kinematics_mutex);
    pose = impl().kinematics.forwardKinematics_kdl({q.begin(), q.end()});
  }
  std::array<double, 6> result{pose[0], pose[1], pose[2], 0.0, 0.0, 0.0};
  KDL::Rotation::Quaternion(pose[3], pose[4], pose[5], pose[6])
      .GetRPY(result[3], result[4], result[5]);
  return result;
}
