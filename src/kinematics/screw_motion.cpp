#include <cmath>
#include <stdexcept>

#include <Eigen/Geometry>

#include "kelvara/kinematics/kinematics.hpp"

namespace {

constexpr double kMinRotationNorm = 1e-12;

Eigen::Matrix3d skew(const Eigen::Vector3d& w) {
  Eigen::Matrix3d K;
  K << 0.0, -w[2], w[1],  //
      w[2], 0.0, -w[0],   //
      -w[1], w[0], 0.0;
  return K;
}

}  // namespace

Eigen::Matrix4d exp_se3(const Eigen::Matrix<double, 6, 1>& S, double theta) {
  const Eigen::Vector3d omega = S.head<3>();
  const Eigen::Vector3d v = S.tail<3>();
  Eigen::Matrix4d T = Eigen::Matrix4d::Identity();
  if (omega.norm() < kMinRotationNorm) {
    T.topRightCorner<3, 1>() = v * theta;
    return T;
  }
  const Eigen::Matrix3d I = Eigen::Matrix3d::Identity();
  const Eigen::Matrix3d K = skew(omega.normalized());
  const Eigen::Matrix3d K2 = K * K;
  const double sine = std::sin(theta);
  const double cosine = std::cos(theta);
  T.topLeftCorner<3, 3>() = I + sine * K + (1.0 - cosine) * K2;
  T.topRightCorner<3, 1>() = (I * theta + (1.0 - cosine) * K + (theta - sine) * K2) * v;
  return T;
}

void RobotKinematics::build_screw_axes() {
  screw_axes_.clear();
  joint_axes_.clear();
  joint_points_.clear();
  Eigen::Matrix4d T_base_joint = Eigen::Matrix4d::Identity();
  for (const joint_t& joint : joints_) {
    T_base_joint *=
        t_from_xyzrpy(Eigen::Vector3d(joint.xyz.data()), Eigen::Vector3d(joint.rpy.data()));
    const Eigen::Vector3d axis = Eigen::Vector3d(joint.axis.data()).normalized();
    const Eigen::Vector3d omega = T_base_joint.topLeftCorner<3, 3>() * axis;
    const Eigen::Vector3d point = T_base_joint.topRightCorner<3, 1>();
    Eigen::Matrix<double, 6, 1> screw;
    screw << omega, -omega.cross(point);
    screw_axes_.push_back(screw);
    joint_axes_.push_back(omega);
    joint_points_.push_back(point);
  }
  home_ = T_base_joint *
          t_from_xyzrpy(Eigen::Vector3d(tool_xyz_.data()), Eigen::Vector3d(tool_rpy_.data()));
}

void RobotKinematics::check_screw_count(const Eigen::VectorXd& q) const {
  if (static_cast<std::size_t>(q.size()) != n_) {
    throw std::runtime_error("关节数不匹配");
  }
}

Eigen::Matrix4d RobotKinematics::forward_kinematics(const Eigen::VectorXd& q) const {
  check_screw_count(q);
  Eigen::Matrix4d T_base_tool = Eigen::Matrix4d::Identity();
  for (std::size_t i = 0; i < n_; ++i) {
    T_base_tool *= exp_se3(screw_axes_[i], q[static_cast<Eigen::Index>(i)]);
  }
  return T_base_tool * home_;
}
