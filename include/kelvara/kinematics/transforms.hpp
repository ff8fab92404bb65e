#pragma once

#include <Eigen/Core>

#include "kelvara/export.hpp"

/// The library's functions on plain arrays, which do not depend on the compiler flags that a
/// program's Eigen follows. The functions below and `RobotKinematics` wrap them. Matrices are
/// stored column by column. Any thread.
namespace kelvara::kinematics::arrays {

KELVARA_EXPORT void t_from_xyzrpy(const double xyz[3], const double rpy[3], double T[16]);
KELVARA_EXPORT void exp_se3(const double S[6], double theta, double T[16]);
KELVARA_EXPORT void rotation_matrix_to_euler(const double R[9], double rpy[3]);
KELVARA_EXPORT void rotation_matrix_to_quaternion(const double R[9], double xyzw[4]);
KELVARA_EXPORT void quaternion_error(const double q_target[4], const double q_current[4],
                                     double error[3]);

}  // namespace kelvara::kinematics::arrays

/// Returns the homogeneous transform of a translation (metres) and roll, pitch, yaw (radians):
/// R = Rz(yaw)·Ry(pitch)·Rx(roll). Any thread.
KELVARA_INLINE Eigen::Matrix4d t_from_xyzrpy(const Eigen::Vector3d& xyz,
                                             const Eigen::Vector3d& rpy) {
  Eigen::Matrix4d T;
  kelvara::kinematics::arrays::t_from_xyzrpy(xyz.data(), rpy.data(), T.data());
  return T;
}

/// Returns the exponential of a screw axis S = (ω, v) times θ (Rodrigues' formula; Lynch and Park,
/// "Modern Robotics", 3.3.3). An ω shorter than 1e-12 gives the translation v·θ. Any thread.
KELVARA_INLINE Eigen::Matrix4d exp_se3(const Eigen::Matrix<double, 6, 1>& S, double theta) {
  Eigen::Matrix4d T;
  kelvara::kinematics::arrays::exp_se3(S.data(), theta, T.data());
  return T;
}
