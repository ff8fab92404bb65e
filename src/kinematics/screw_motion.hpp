#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include <Eigen/Core>

#include "kelvara/kinematics/chain_joint.hpp"

namespace kelvara::kinematics {

/// Returns the exponential of a screw axis S = (ω, v) times θ.
Eigen::Matrix4d exponential(const Eigen::Matrix<double, 6, 1>& S, double theta);

/// The arm as a product of exponentials: screw axes in the base frame and a home transform. Every
/// chain joint, a fixed one too, counts as a revolute joint. Any threads once it is constructed.
class ScrewMotion {
 public:
  using Axis = Eigen::Matrix<double, 6, 1>;  // (ω, v)

  /// @param tool_xyz, tool_rpy The tool in the last link's frame, m and rad.
  ScrewMotion(std::vector<ChainJoint> joints, const std::array<double, 3>& tool_xyz,
              const std::array<double, 3>& tool_rpy);

  /// Computes the screw axes and the home transform. Must not overlap any other call.
  void build_screw_axes();

  /// @throws std::runtime_error "关节数不匹配" unless `count` is the number of chain joints.
  void check_joint_count(std::size_t count) const;
  /// Returns the base-to-tool transform at `count` angles.
  Eigen::Matrix4d forward_kinematics(const double* q, std::size_t count) const;

  const std::vector<ChainJoint>& joints() const { return joints_; }
  const std::vector<Axis>& screw_axes() const { return screw_axes_; }
  const std::vector<Eigen::Vector3d>& joint_axes() const { return joint_axes_; }
  const std::vector<Eigen::Vector3d>& joint_points() const { return joint_points_; }
  const Eigen::Matrix4d& home() const { return home_; }
  std::size_t count() const { return n_; }

 private:
  std::vector<ChainJoint> joints_;
  std::array<double, 3> tool_xyz_;
  std::array<double, 3> tool_rpy_;
  std::vector<Axis> screw_axes_;
  std::vector<Eigen::Vector3d> joint_axes_;
  std::vector<Eigen::Vector3d> joint_points_;
  // Aligned for every instruction set that a program may be compiled for:
  // `RobotKinematics::home()` refers to it.
  alignas(64) Eigen::Matrix4d home_ = Eigen::Matrix4d::Identity();
  std::size_t n_ = 0;
};

}  // namespace kelvara::kinematics
