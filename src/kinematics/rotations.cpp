#include <algorithm>
#include <cmath>

#include <Eigen/Geometry>

#include "kelvara/kinematics/kinematics.hpp"

namespace {

// Beyond this |sin(pitch)| roll and yaw turn about the same axis.
constexpr double kGimbalLockSine = 0.99999;

Eigen::Quaterniond to_quaternion(const Eigen::Vector4d& xyzw) {
  return {xyzw[3], xyzw[0], xyzw[1], xyzw[2]};
}

}  // namespace

Eigen::Matrix4d t_from_xyzrpy(const Eigen::Vector3d& xyz, const Eigen::Vector3d& rpy) {
  Eigen::Matrix4d T = Eigen::Matrix4d::Identity();
  T.topLeftCorner<3, 3>() = (Eigen::AngleAxisd(rpy[2], Eigen::Vector3d::UnitZ()) *
                             Eigen::AngleAxisd(rpy[1], Eigen::Vector3d::UnitY()) *
                             Eigen::AngleAxisd(rpy[0], Eigen::Vector3d::UnitX()))
                                .toRotationMatrix();
  T.topRightCorner<3, 1>() = xyz;
  return T;
}

Eigen::Vector3d RobotKinematics::rotation_matrix_to_euler(const Eigen::Matrix3d& R) const {
  // Rounding can carry the sine beyond 1.
  const double pitch = -std::asin(std::clamp(R(2, 0), -1.0, 1.0));
  if (std::abs(R(2, 0)) > kGimbalLockSine) {
    const double roll =
        R(2, 0) > 0.0 ? std::atan2(R(1, 1), R(1, 2)) : std::atan2(-R(1, 1), -R(1, 2));
    return {roll, pitch, 0.0};
  }
  return {std::atan2(R(2, 1), R(2, 2)), pitch, std::atan2(R(1, 0), R(0, 0))};
}

Eigen::Vector4d RobotKinematics::rotation_matrix_to_quaternion(const Eigen::Matrix3d& R) const {
  return Eigen::Quaterniond(R).coeffs();
}

Eigen::Vector3d RobotKinematics::quaternion_error(const Eigen::Vector4d& q_target,
                                                  const Eigen::Vector4d& q_current) const {
  const Eigen::Quaterniond error =
      to_quaternion(q_target).normalized() * to_quaternion(q_current).normalized().inverse();
  // The shorter way round: the sign of w is taken into the axis.
  const Eigen::AngleAxisd rotation(error);
  return rotation.axis() * rotation.angle();
}
