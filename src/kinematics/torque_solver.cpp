#include "kinematics/torque_solver.hpp"

#include <algorithm>

#include "kinematics/kdl_arrays.hpp"

namespace kelvara::kinematics {
namespace {

constexpr double kGravity = 9.81;  // m/s², along -z of the base frame

// The Coriolis function has the same text; programs match on it.
constexpr const char* kGravityMismatch =
    "gravity_compensation_kdl: size mismatch between input vector and KDL chain joints";

void copy_to(KDL::JntArray& array, const double* values) {
  std::copy_n(values, array.rows(), array.data.data());
}

}  // namespace

TorqueSolver::TorqueSolver(const KDL::Chain& arm)
    : chain_(arm),
      num_joints_(static_cast<int>(chain_.getNrOfJoints())),
      dyn_param_(chain_, KDL::Vector(0.0, 0.0, -kGravity)),
      q_(chain_.getNrOfJoints()),
      qd_(chain_.getNrOfJoints()),
      coriolis_(chain_.getNrOfJoints()),
      gravity_(chain_.getNrOfJoints()),
      mass_(num_joints_) {}

std::vector<double> TorqueSolver::gravity_compensation_kdl(const std::vector<double>& q) {
  check_joint_count(q.size(), num_joints_, kGravityMismatch);
  copy_to(q_, q.data());
  check_result("gravity_compensation_kdl", dyn_param_.JntToGravity(q_, gravity_));
  return to_vector(gravity_);
}

std::vector<double> TorqueSolver::coriolis_compensation_kdl(const std::vector<double>& q,
                                                            const std::vector<double>& qd) {
  check_joint_count(q.size(), num_joints_, kGravityMismatch);
  check_joint_count(std::min(qd.size(), q.size()), num_joints_, kGravityMismatch);
  copy_to(q_, q.data());
  copy_to(qd_, qd.data());
  check_result("coriolis_compensation_kdl", dyn_param_.JntToCoriolis(q_, qd_, coriolis_));
  return to_vector(coriolis_);
}

std::vector<double> TorqueSolver::dynamic_compensation_kdl(const std::vector<double>& q,
                                                           const std::vector<double>& qd,
                                                           const std::vector<double>& qdd) {
  constexpr const char* kMismatch = "dynamic_compensation_kdl: size mismatch";
  check_joint_count(q.size(), num_joints_, kMismatch);
  check_joint_count(std::min({q.size(), qd.size(), qdd.size()}), num_joints_, kMismatch);
  std::vector<double> tau(q.size());
  inverse_dynamics(q.data(), qd.data(), qdd.data(), tau.data());
  return tau;
}

void TorqueSolver::inverse_dynamics(const double* q, const double* qd, const double* qdd,
                                    double* tau) {
  copy_to(q_, q);
  copy_to(qd_, qd);
  dyn_param_.JntToMass(q_, mass_);
  dyn_param_.JntToCoriolis(q_, qd_, coriolis_);
  dyn_param_.JntToGravity(q_, gravity_);
  const auto joints = static_cast<unsigned>(num_joints_);
  for (unsigned i = 0; i < joints; ++i) {
    double torque = 0.0;
    for (unsigned j = 0; j < joints; ++j) {
      torque += mass_(i, j) * qdd[j];
    }
    tau[i] = torque + coriolis_(i) + gravity_(i);
  }
}

}  // namespace kelvara::kinematics
