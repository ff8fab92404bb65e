#include "kinematics/jacobian_ik.hpp"

#include <algorithm>
#include <vector>

#include <Eigen/Cholesky>

#include "kinematics/rotations.hpp"

#include "diagnostics/line.hpp"

namespace kelvara::kinematics {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDifferenceStep = 1e-6;    // rad
constexpr double kOrientationWeight = 0.2;  // of the orientation error in the step alone

/// The angle inside [-π, π]; NaN becomes π.
double clamp_angle(double angle) {
  const double below = angle < kPi ? angle : kPi;
  return below < -kPi ? -kPi : below;
}

/// One solution: the iterate's pose and error, and storage that is allocated once.
class DampedLeastSquares {
 public:
  DampedLeastSquares(const ScrewMotion& motion, const JacobianTarget& target)
      : motion_(motion),
        target_(target),
        target_orientation_(quaternion_of_euler(target.euler)),
        exponentials_(motion.count()),
        suffixes_(motion.count() + 1),
        J_(6, joints()),
        A_(joints(), joints()),
        b_(joints()),
        dq_(joints()),
        factors_(joints()) {
    for (const ScrewMotion::Axis& axis : motion.screw_axes()) {
      differences_.push_back(exponential(axis, kDifferenceStep));
    }
  }

  /// Computes the pose at `q` and its error, and whether that is below the thresholds.
  bool reaches_target(const Eigen::Map<Eigen::VectorXd>& q) {
    compute_pose(q);
    const Eigen::Vector3d position_error = target_.position - position_;
    const Eigen::Vector3d orientation_error = rotation_error(target_orientation_, orientation_);
    error_ << position_error, kOrientationWeight * orientation_error;
    return position_error.norm() < target_.threshold_pos &&
           orientation_error.norm() < target_.threshold_rot;
  }

  /// Moves `q`, the iterate of the last `reaches_target`, by one step.
  void update(Eigen::Map<Eigen::VectorXd>& q) {
    fill_jacobian();
    A_.noalias() = J_.transpose().lazyProduct(J_);
    A_.diagonal().array() += target_.damping;
    b_.noalias() = J_.transpose().lazyProduct(error_);
    factors_.compute(A_);
    dq_ = factors_.solve(b_);
    q += dq_;
    std::transform(q.begin(), q.end(), q.begin(), clamp_angle);
  }

 private:
  Eigen::Index joints() const { return static_cast<Eigen::Index>(motion_.count()); }

  void compute_pose(const Eigen::Map<Eigen::VectorXd>& q) {
    suffixes_.back() = motion_.home();
    for (std::size_t j = motion_.count(); j-- > 0;) {
      exponentials_[j] = exponential(motion_.screw_axes()[j], q[static_cast<Eigen::Index>(j)]);
      suffixes_[j] = exponentials_[j] * suffixes_[j + 1];
    }
    position_ = suffixes_[0].topRightCorner<3, 1>();
    orientation_ = quaternion_of(suffixes_[0].topLeftCorner<3, 3>());
  }

  /// Moving joint j alone leaves the exponentials before and after it as they are, and
  /// exp(S·(q + δ)) = exp(S·q)·exp(S·δ): a column costs two products instead of a whole forward
  /// kinematics.
  void fill_jacobian() {
    Eigen::Matrix4d prefix = Eigen::Matrix4d::Identity();
    Eigen::Matrix4d moved;
    Eigen::Matrix4d T;
    for (std::size_t j = 0; j < motion_.count(); ++j) {
      const auto column = static_cast<Eigen::Index>(j);
      moved.noalias() = differences_[j].lazyProduct(suffixes_[j + 1]);
      prefix = prefix.lazyProduct(exponentials_[j]).eval();
      T.noalias() = prefix.lazyProduct(moved);
      J_.col(column).head<3>() = (T.topRightCorner<3, 1>() - position_) / kDifferenceStep;
      J_.col(column).tail<3>() =
          rotation_error(quaternion_of(T.topLeftCorner<3, 3>()), orientation_) / kDifferenceStep;
    }
  }

  const ScrewMotion& motion_;
  const JacobianTarget& target_;
  const Eigen::Vector4d target_orientation_;
  std::vector<Eigen::Matrix4d> exponentials_;  // of each joint at the iterate
  std::vector<Eigen::Matrix4d> differences_;   // of each joint's difference step
  std::vector<Eigen::Matrix4d> suffixes_;      // [j]: from joint j to the tool, home included
  Eigen::Vector3d position_;
  Eigen::Vector4d orientation_;
  Eigen::Matrix<double, 6, 1> error_;
  Eigen::Matrix<double, 6, Eigen::Dynamic> J_;
  Eigen::MatrixXd A_;
  Eigen::VectorXd b_;
  Eigen::VectorXd dq_;
  Eigen::LDLT<Eigen::MatrixXd> factors_;
};

void report_failure(const JacobianTarget& target) {
  const auto& [position, euler, threshold_pos, threshold_rot, max_iterations, damping] = target;
  diagnostics::error_line()
      << "inverse_kinematics_jacobian failed: reason=failed to converge within "
         "iteration/threshold limits, max_iterations="
      << max_iterations << ", threshold_pos=" << threshold_pos
      << ", threshold_rot=" << threshold_rot << ", damping=" << damping << ", target_pos=["
      << position[0] << ", " << position[1] << ", " << position[2] << "], target_euler=["
      << euler[0] << ", " << euler[1] << ", " << euler[2] << "]";
}

}  // namespace

bool solve_jacobian_ik(const ScrewMotion& motion, const JacobianTarget& target,
                       Eigen::Map<Eigen::VectorXd> q) {
  if (target.max_iterations > 0) {
    motion.check_joint_count(static_cast<std::size_t>(q.size()));
  }
  DampedLeastSquares solution(motion, target);
  for (int k = 0; k < target.max_iterations; ++k) {
    if (solution.reaches_target(q)) {
      return true;
    }
    solution.update(q);
  }
  report_failure(target);
  return false;
}

}  // namespace kelvara::kinematics
