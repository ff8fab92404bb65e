#include <algorithm>
#include <cmath>
#include <iostream>
#include <sstream>

#include <Eigen/Cholesky>
#include <Eigen/Geometry>

#include "kelvara/kinematics/kinematics.hpp"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDifferenceStep = 1e-6;    // rad
constexpr double kOrientationWeight = 0.2;  // of the orientation error in the step alone

Eigen::Vector4d quaternion_from_euler(const Eigen::Vector3d& rpy) {
  const Eigen::Quaterniond q = Eigen::AngleAxisd(rpy[2], Eigen::Vector3d::UnitZ()) *
                               Eigen::AngleAxisd(rpy[1], Eigen::Vector3d::UnitY()) *
                               Eigen::AngleAxisd(rpy[0], Eigen::Vector3d::UnitX());
  return q.coeffs();
}

/// The angle inside [-π, π]; what is no number becomes π.
double clamp_angle(double angle) {
  const double below = angle < kPi ? angle : kPi;
  return below < -kPi ? -kPi : below;
}

}  // namespace

/// Storage of one solution, allocated before its first iteration.
struct RobotKinematics::JacobianWork {
  explicit JacobianWork(std::size_t joints)
      : exponentials(joints),
        differences(joints),
        suffixes(joints + 1),
        J(6, static_cast<Eigen::Index>(joints)),
        A(static_cast<Eigen::Index>(joints), static_cast<Eigen::Index>(joints)),
        b(static_cast<Eigen::Index>(joints)),
        dq(static_cast<Eigen::Index>(joints)),
        factors(static_cast<Eigen::Index>(joints)) {}

  std::vector<Eigen::Matrix4d> exponentials;  // of each joint at the present angles
  std::vector<Eigen::Matrix4d> differences;   // of each joint's difference step
  std::vector<Eigen::Matrix4d> suffixes;      // [j]: from joint j to the tool, home included
  Eigen::Matrix<double, 6, Eigen::Dynamic> J;
  Eigen::MatrixXd A;
  Eigen::VectorXd b;
  Eigen::VectorXd dq;
  Eigen::LDLT<Eigen::MatrixXd> factors;
};

/// Moving joint j alone leaves the exponentials before and after it as they are, and
/// exp(S·(q + δ)) = exp(S·q)·exp(S·δ): a column costs two products instead of a whole forward
/// kinematics.
void RobotKinematics::fill_jacobian(const Eigen::Vector3d& position,
                                    const Eigen::Vector4d& orientation, JacobianWork& work) const {
  Eigen::Matrix4d prefix = Eigen::Matrix4d::Identity();
  Eigen::Matrix4d moved;
  Eigen::Matrix4d T;
  for (std::size_t j = 0; j < n_; ++j) {
    const auto column = static_cast<Eigen::Index>(j);
    moved.noalias() = work.differences[j].lazyProduct(work.suffixes[j + 1]);
    prefix = prefix.lazyProduct(work.exponentials[j]).eval();
    T.noalias() = prefix.lazyProduct(moved);
    work.J.col(column).head<3>() = (T.topRightCorner<3, 1>() - position) / kDifferenceStep;
    work.J.col(column).tail<3>() =
        quaternion_error(rotation_matrix_to_quaternion(T.topLeftCorner<3, 3>()), orientation) /
        kDifferenceStep;
  }
}

RobotKinematics::IkResult RobotKinematics::inverse_kinematics_jacobian(
    const Eigen::Vector3d& target_pos, const Eigen::Vector3d& target_euler,
    const Eigen::VectorXd& q_init, double threshold_pos, double threshold_rot, int max_iterations,
    double damping) const {
  const Eigen::Vector4d target_orientation = quaternion_from_euler(target_euler);
  Eigen::VectorXd q = q_init;
  JacobianWork work(n_);
  if (max_iterations > 0) {
    check_screw_count(q);
  }
  for (std::size_t j = 0; j < n_; ++j) {
    work.differences[j] = exp_se3(screw_axes_[j], kDifferenceStep);
  }
  for (int k = 0; k < max_iterations; ++k) {
    work.suffixes[n_] = home_;
    for (std::size_t j = n_; j-- > 0;) {
      work.exponentials[j] = exp_se3(screw_axes_[j], q[static_cast<Eigen::Index>(j)]);
      work.suffixes[j] = work.exponentials[j] * work.suffixes[j + 1];
    }
    const Eigen::Matrix4d& T = work.suffixes[0];
    const Eigen::Vector3d position = T.topRightCorner<3, 1>();
    const Eigen::Vector4d orientation = rotation_matrix_to_quaternion(T.topLeftCorner<3, 3>());
    const Eigen::Vector3d position_error = target_pos - position;
    const Eigen::Vector3d rotation_error = quaternion_error(target_orientation, orientation);
    if (position_error.norm() < threshold_pos && rotation_error.norm() < threshold_rot) {
      return {q, true};
    }
    Eigen::Matrix<double, 6, 1> error;
    error << position_error, kOrientationWeight * rotation_error;
    fill_jacobian(position, orientation, work);
    work.A.noalias() = work.J.transpose().lazyProduct(work.J);
    work.A.diagonal().array() += damping;
    work.b.noalias() = work.J.transpose().lazyProduct(error);
    work.factors.compute(work.A);
    work.dq = work.factors.solve(work.b);
    q += work.dq;
    std::transform(q.begin(), q.end(), q.begin(), clamp_angle);
  }
  std::ostringstream line;
  line
      << "inverse_kinematics_jacobian failed: reason=failed to converge within iteration/threshold "
         "limits, max_iterations="
      << max_iterations << ", threshold_pos=" << threshold_pos
      << ", threshold_rot=" << threshold_rot << ", damping=" << damping << ", target_pos=["
      << target_pos[0] << ", " << target_pos[1] << ", " << target_pos[2] << "], target_euler=["
      << target_euler[0] << ", " << target_euler[1] << ", " << target_euler[2] << "]\n";
  std::cerr << line.str() << std::flush;
  return {q, false};
}
