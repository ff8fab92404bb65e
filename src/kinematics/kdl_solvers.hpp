#pragma once

#include <vector>

#include <kdl/chain.hpp>
#include <kdl/chainfksolverpos_recursive.hpp>
#include <kdl/chainiksolverpos_lma.hpp>
#include <kdl/frames.hpp>
#include <kdl/jntarray.hpp>

#include "description/kinematics_settings.hpp"
#include "description/urdf.hpp"

namespace kelvara::kinematics {

/// The KDL chain with its position solvers. The functions are those of `RobotKinematics`; calls
/// must not overlap, since the solvers keep scratch state.
class KdlSolvers {
 public:
  /// @throws std::runtime_error for an unsupported joint type.
  KdlSolvers(const description::UrdfDescription& urdf, const description::KinematicsConfig& config);
  KdlSolvers(const KdlSolvers&) = delete;
  KdlSolvers& operator=(const KdlSolvers&) = delete;

  bool solve_ik_kdl(const std::vector<double>& target_pos, const std::vector<double>& target_euler,
                    const std::vector<double>& seed, std::vector<double>& q_out);
  std::vector<double> forwardKinematics_kdl(const std::vector<double>& q);

  const KDL::Chain& chain() const { return chain_; }
  int num_joints() const { return num_joints_; }
  const std::vector<double>& joint_lower() const { return joint_lower_; }
  const std::vector<double>& joint_upper() const { return joint_upper_; }
  const std::vector<bool>& joint_has_limits() const { return joint_has_limits_; }

 private:
  void check_ik_sizes(const std::vector<double>& target_pos,
                      const std::vector<double>& target_euler,
                      const std::vector<double>& seed) const;
  double clamp_to_limits(std::size_t joint, double angle) const;
  /// Writes a line when the solution in `q_wrapped_` was clipped or misses the target.
  void report_solution(const std::vector<double>& target_pos,
                       const std::vector<double>& target_euler, const std::vector<double>& seed);
  KDL::Frame pose_at(const KDL::JntArray& q);

  // For each chain joint; meaningful where it has limits, rad.
  std::vector<double> joint_lower_;
  std::vector<double> joint_upper_;
  std::vector<bool> joint_has_limits_;
  KDL::Chain chain_;
  const int num_joints_;  // moving joints
  // Both refer to `chain_`.
  KDL::ChainIkSolverPos_LMA ik_solver_;
  KDL::ChainFkSolverPos_recursive fk_solver_;
  // Scratch.
  KDL::JntArray seed_;
  KDL::JntArray q_wrapped_;  // the solution, wrapped to [-π, π]
  KDL::JntArray q_clipped_;  // the same within the joint limits
};

}  // namespace kelvara::kinematics
