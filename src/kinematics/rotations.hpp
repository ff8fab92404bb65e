#pragma once

#include <Eigen/Core>

/// Rotations R = Rz(yaw)·Ry(pitch)·Rx(roll), and quaternions in the order (x, y, z, w).
namespace kelvara::kinematics {

/// Returns the homogeneous transform of a translation (m) and roll, pitch, yaw (rad).
Eigen::Matrix4d make_transform(const Eigen::Vector3d& xyz, const Eigen::Vector3d& rpy);

/// Returns roll, pitch and yaw of a rotation; yaw = 0 where pitch is ±90 degrees.
Eigen::Vector3d euler_of(const Eigen::Matrix3d& R);

Eigen::Vector4d quaternion_of(const Eigen::Matrix3d& R);
Eigen::Vector4d quaternion_of_euler(const Eigen::Vector3d& rpy);

/// Returns the rotation vector (axis times angle, base frame) from `q_current` to `q_target`,
/// quaternions of any length.
Eigen::Vector3d rotation_error(const Eigen::Vector4d& q_target, const Eigen::Vector4d& q_current);

}  // namespace kelvara::kinematics
