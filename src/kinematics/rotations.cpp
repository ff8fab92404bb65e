#include "kinematics/rotations.hpp"

#include <algorithm>
#include <cmath>

#include <Eigen/Geometry>

#include "kelvara/kinematics/transforms.hpp"

namespace kelvara::kinematics {
namespace {

// Beyond this |sin(pitch)| roll and yaw turn about the same axis.
constexpr double kGimbalLockSine = 0.99999;

Eigen::Quaterniond rotation_of(const Eigen::Vector3d& rpy) {
  return Eigen::AngleAxisd(rpy[2], Eigen::Vector3d::UnitZ()) *
         Eigen::AngleAxisd(rpy[1], Eigen::Vector3d::UnitY()) *
         Eigen::AngleAxisd(rpy[0], Eigen::Vector3d::UnitX());
}

Eigen::Quaterniond to_quaternion(const Eigen::Vector4d& xyzw) {
  return {xyzw[3], xyzw[0], xyzw[1], xyzw[2]};
}

}  // namespace

Eigen::Matrix4d make_transform(const Eigen::Vector3d& xyz, const Eigen::Vector3d& rpy) {
  Eigen::Matrix4d T = Eigen::Matrix4d::Identity();
  T.topLeftCorner<3, 3>() = rotation_of(rpy).toRotationMatrix();
  T.topRightCorner<3, 1>() = xyz;
  return T;
}

Eigen::Vector3d euler_of(const Eigen::Matrix3d& R) {
  // Rounding can carry the sine beyond 1.
  const double pitch = -std::asin(std::clamp(R(2, 0), -1.0, 1.0));
  if (std::abs(R(2, 0)) > kGimbalLockSine) {
    const double roll =
        R(2, 0) > 0.0 ? std::atan2(R(1, 1), R(1, 2)) : std::atan2(-R(1, 1), -R(1, 2));
    return {roll, pitch, 0.0};
  }
  return {std::atan2(R(2, 1), R(2, 2)), pitch, std::atan2(R(1, 0), R(0, 0))};
}

Eigen::Vector4d quaternion_of(const Eigen::Matrix3d& R) { return Eigen::Quaterniond(R).coeffs(); }

Eigen::Vector4d quaternion_of_euler(const Eigen::Vector3d& rpy) {
  return rotation_of(rpy).coeffs();
}

Eigen::Vector3d rotation_error(const Eigen::Vector4d& q_target, const Eigen::Vector4d& q_current) {
  const Eigen::Quaterniond error =
      to_quaternion(q_target).normalized() * to_quaternion(q_current).normalized().inverse();
  // The shorter way round: the sign of w is taken into the axis.
  const Eigen::AngleAxisd rotation(error);
  return rotation.axis() * rotation.angle();
}

namespace arrays {

void t_from_xyzrpy(const double xyz[3], const double rpy[3], double T[16]) {
  Eigen::Map<Eigen::Matrix4d>{T} = make_transform(Eigen::Vector3d(xyz), Eigen::Vector3d(rpy));
}

void rotation_matrix_to_euler(const double R[9], double rpy[3]) {
  Eigen::Map<Eigen::Vector3d>{rpy} = euler_of(Eigen::Matrix3d(R));
}

void rotation_matrix_to_quaternion(const double R[9], double xyzw[4]) {
  Eigen::Map<Eigen::Vector4d>{xyzw} = quaternion_of(Eigen::Matrix3d(R));
}

void quaternion_error(const double q_target[4], const double q_current[4], double error[3]) {
  Eigen::Map<Eigen::Vector3d>{error} =
      rotation_error(Eigen::Vector4d(q_target), Eigen::Vector4d(q_current));
}

}  // namespace arrays
}  // namespace kelvara::kinematics
