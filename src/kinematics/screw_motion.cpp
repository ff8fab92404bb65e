#include "kinematics/screw_motion.hpp"

#include <cmath>
#include <stdexcept>
#include <utility>

#include <Eigen/Geometry>

#include "kelvara/kinematics/transforms.hpp"
#include "kinematics/rotations.hpp"

namespace kelvara::kinematics {
namespace {

constexpr double kMinRotationNorm = 1e-12;

Eigen::Vector3d to_eigen(const std::array<double, 3>& v) { return Eigen::Vector3d(v.data()); }

Eigen::Matrix3d skew(const Eigen::Vector3d& w) {
  Eigen::Matrix3d K;
  K << 0.0, -w[2], w[1],  //
      w[2], 0.0, -w[0],   //
      -w[1], w[0], 0.0;
  return K;
}

}  // namespace

Eigen::Matrix4d exponential(const Eigen::Matrix<double, 6, 1>& S, double theta) {
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

ScrewMotion::ScrewMotion(std::vector<ChainJoint> joints, const std::array<double, 3>& tool_xyz,
                         const std::array<double, 3>& tool_rpy)
    : joints_(std::move(joints)), tool_xyz_(tool_xyz), tool_rpy_(tool_rpy) {
  build_screw_axes();
  n_ = screw_axes_.size();
}

void ScrewMotion::build_screw_axes() {
  screw_axes_.clear();
  joint_axes_.clear();
  joint_points_.clear();
  Eigen::Matrix4d T_base_joint = Eigen::Matrix4d::Identity();
  for (const ChainJoint& joint : joints_) {
    T_base_joint *= make_transform(to_eigen(joint.xyz), to_eigen(joint.rpy));
    const Eigen::Vector3d axis = to_eigen(joint.axis).normalized();
    const Eigen::Vector3d omega = T_base_joint.topLeftCorner<3, 3>() * axis;
    const Eigen::Vector3d point = T_base_joint.topRightCorner<3, 1>();
    Axis screw;
    screw << omega, -omega.cross(point);
    screw_axes_.push_back(screw);
    joint_axes_.push_back(omega);
    joint_points_.push_back(point);
  }
  home_ = T_base_joint * make_transform(to_eigen(tool_xyz_), to_eigen(tool_rpy_));
}

void ScrewMotion::check_joint_count(std::size_t count) const {
  if (count != n_) {
    throw std::runtime_error("关节数不匹配");
  }
}

Eigen::Matrix4d ScrewMotion::forward_kinematics(const double* q, std::size_t count) const {
  check_joint_count(count);
  Eigen::Matrix4d T_base_tool = Eigen::Matrix4d::Identity();
  for (std::size_t i = 0; i < n_; ++i) {
    T_base_tool *= exponential(screw_axes_[i], q[i]);
  }
  return T_base_tool * home_;
}

namespace arrays {

void exp_se3(const double S[6], double theta, double T[16]) {
  Eigen::Map<Eigen::Matrix4d>{T} = exponential(ScrewMotion::Axis(S), theta);
}

}  // namespace arrays
}  // namespace kelvara::kinematics
