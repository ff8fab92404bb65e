#pragma once

#include <vector>

#include <kdl/chain.hpp>

#include "kinematics/merged_chain.hpp"

namespace kelvara::kinematics {

/// The torques of the chain's dynamics, in N·m (N at a prismatic joint), by one recursive
/// Newton-Euler pass over the merged links. The functions are those of `RobotKinematics`. Immutable
/// after construction: any threads may call it at once.
class TorqueSolver {
 public:
  explicit TorqueSolver(const KDL::Chain& arm) : links_(merge_fixed_joints(arm)) {}

  std::vector<double> gravity_compensation_kdl(const std::vector<double>& q) const;
  std::vector<double> coriolis_compensation_kdl(const std::vector<double>& q,
                                                const std::vector<double>& qd) const;
  std::vector<double> dynamic_compensation_kdl(const std::vector<double>& q,
                                               const std::vector<double>& qd,
                                               const std::vector<double>& qdd) const;
  /// Allocates nothing for up to 16 moving joints. `tau` may be one of the inputs.
  void inverse_dynamics(const double* q, const double* qd, const double* qdd, double* tau) const;

 private:
  int num_joints() const { return static_cast<int>(links_.size()); }

  std::vector<MergedLink> links_;
};

}  // namespace kelvara::kinematics
