#pragma once

#include <vector>

#include <kdl/chain.hpp>
#include <kdl/chaindynparam.hpp>
#include <kdl/jntarray.hpp>
#include <kdl/jntspaceinertiamatrix.hpp>

namespace kelvara::kinematics {

/// The torques of the chain's dynamics, in N·m. The functions are those of `RobotKinematics`; calls
/// must not overlap, since they share scratch storage.
///
/// It owns a copy of the chain. KDL joints cache the pose computed last, so a chain shared with the
/// pose solvers would tie the control thread to the application's calls.
class TorqueSolver {
 public:
  explicit TorqueSolver(const KDL::Chain& arm);
  TorqueSolver(const TorqueSolver&) = delete;
  TorqueSolver& operator=(const TorqueSolver&) = delete;

  std::vector<double> gravity_compensation_kdl(const std::vector<double>& q);
  std::vector<double> coriolis_compensation_kdl(const std::vector<double>& q,
                                                const std::vector<double>& qd);
  std::vector<double> dynamic_compensation_kdl(const std::vector<double>& q,
                                               const std::vector<double>& qd,
                                               const std::vector<double>& qdd);
  /// Allocates nothing.
  void inverse_dynamics(const double* q, const double* qd, const double* qdd, double* tau);

 private:
  KDL::Chain chain_;
  const int num_joints_;
  KDL::ChainDynParam dyn_param_;  // refers to `chain_`
  KDL::JntArray q_;
  KDL::JntArray qd_;
  KDL::JntArray coriolis_;
  KDL::JntArray gravity_;
  KDL::JntSpaceInertiaMatrix mass_;
};

}  // namespace kelvara::kinematics
