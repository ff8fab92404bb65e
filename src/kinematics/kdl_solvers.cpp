#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include <Eigen/Core>
#include <kdl/chainfksolverpos_recursive.hpp>
#include <kdl/chainiksolverpos_lma.hpp>
#include <kdl/frames.hpp>
#include <kdl/jntarray.hpp>

#include "kelvara/kinematics/kinematics.hpp"
#include "kinematics/dynamics.hpp"

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kIkTolerance = 1e-5;
constexpr int kIkMaxIterations = 500;
constexpr double kIkJointStepTolerance = 1e-15;
constexpr double kReportedClip = 1e-9;            // rad
constexpr double kReportedPositionError = 0.001;  // m

KDL::JntArray to_jnt_array(const std::vector<double>& values) {
  KDL::JntArray array(static_cast<unsigned>(values.size()));
  std::copy(values.begin(), values.end(), array.data.data());
  return array;
}

void copy_to(KDL::JntArray& array, const double* values) {
  std::copy_n(values, array.rows(), array.data.data());
}

std::vector<double> to_vector(const KDL::JntArray& array) {
  return {array.data.data(), array.data.data() + array.rows()};
}

double wrap_to_pi(double angle) {
  // Beyond a few turns subtracting one at a time would take for ever.
  if (std::abs(angle) > 100.0) {
    angle = std::remainder(angle, 2.0 * kPi);
  }
  while (angle > kPi) {
    angle -= 2.0 * kPi;
  }
  while (angle < -kPi) {
    angle += 2.0 * kPi;
  }
  return angle;
}

std::string format_double_vector(const std::vector<double>& values) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(6) << '[';
  for (std::size_t i = 0; i < values.size(); ++i) {
    text << (i == 0 ? "" : ", ") << values[i];
  }
  text << ']';
  return text.str();
}

/// "[a, b, c]" of the first three values, in the stream's default format.
std::string format_triple(const std::vector<double>& values) {
  std::ostringstream text;
  text << '[' << values[0] << ", " << values[1] << ", " << values[2] << ']';
  return text.str();
}

std::string format_clipped_joints(const std::vector<double>& wrapped,
                                  const std::vector<double>& clipped) {
  std::ostringstream text;
  const char* separator = "";
  text << '[';
  for (std::size_t j = 0; j < wrapped.size(); ++j) {
    if (std::abs(clipped[j] - wrapped[j]) > kReportedClip) {
      text << separator << "joint" << j + 1 << ": " << wrapped[j] << " -> " << clipped[j];
      separator = ", ";
    }
  }
  text << ']';
  return text.str();
}

double position_error(const std::vector<double>& pose, const std::vector<double>& target) {
  return std::hypot(pose[0] - target[0], pose[1] - target[1], pose[2] - target[2]);
}

[[noreturn]] void throw_solver_failure(const char* function, int code) {
  throw std::runtime_error(std::string(function) + " failed with code " + std::to_string(code));
}

}  // namespace

void RobotKinematics::create_solvers() {
  const Eigen::Matrix<double, 6, 1> weights = Eigen::Matrix<double, 6, 1>::Ones();
  ik_solver_ = std::make_unique<KDL::ChainIkSolverPos_LMA>(chain_, weights, kIkTolerance,
                                                           kIkMaxIterations, kIkJointStepTolerance);
  fk_solver_ = std::make_unique<KDL::ChainFkSolverPos_recursive>(chain_);
  dyn_param_ = std::make_unique<Dynamics>(chain_);
}

void RobotKinematics::check_joint_count(std::size_t count, const char* message) const {
  if (count != static_cast<std::size_t>(num_joints_)) {
    throw std::runtime_error(message);
  }
}

// ---- Poses ----------------------------------------------------------------

bool RobotKinematics::solve_ik_kdl(const std::vector<double>& target_pos,
                                   const std::vector<double>& target_euler,
                                   const std::vector<double>& seed, std::vector<double>& q_out) {
  if (target_pos.size() != 3 || target_euler.size() != 3) {
    throw std::invalid_argument("solve_ik_kdl expects 3D position and 3D Euler target");
  }
  if (seed.size() != static_cast<std::size_t>(num_joints_)) {
    throw std::invalid_argument("solve_ik_kdl seed size does not match KDL joint count");
  }
  if (num_joints_ == 0) {
    // The solver asserts on a chain that cannot move.
    throw std::runtime_error("solve_ik_kdl: the chain has no moving joint");
  }
  const KDL::Frame target(KDL::Rotation::RPY(target_euler[0], target_euler[1], target_euler[2]),
                          KDL::Vector(target_pos[0], target_pos[1], target_pos[2]));
  KDL::JntArray q_raw(static_cast<unsigned>(num_joints_));
  const int ret = ik_solver_->CartToJnt(to_jnt_array(seed), target, q_raw);
  // A target that is not finite can leave the solver content with angles that are no numbers.
  if (ret < 0 || !q_raw.data.allFinite()) {
    std::ostringstream line;
    line << "solve_ik_kdl failed: ret=" << ret << ", reason=" << ik_solver_->strError(ret)
         << ", target_pos=" << format_triple(target_pos)
         << ", target_euler=" << format_triple(target_euler) << '\n';
    std::cerr << line.str();
    return false;
  }

  std::vector<double> q_wrapped = to_vector(q_raw);
  q_out.resize(q_wrapped.size());
  for (std::size_t j = 0; j < q_wrapped.size(); ++j) {
    q_wrapped[j] = wrap_to_pi(q_wrapped[j]);
    q_out[j] = q_wrapped[j];
    if (joint_has_limits_[j]) {
      q_out[j] = q_wrapped[j] < joint_lower_[j] ? joint_lower_[j]
                                                : std::min(joint_upper_[j], q_wrapped[j]);
    }
  }
  report_ik_solution(target_pos, target_euler, seed, q_wrapped, q_out);
  return true;
}

void RobotKinematics::report_ik_solution(const std::vector<double>& target_pos,
                                         const std::vector<double>& target_euler,
                                         const std::vector<double>& seed,
                                         const std::vector<double>& q_wrapped,
                                         const std::vector<double>& q_clipped) {
  const std::vector<double> raw_pose = forwardKinematics_kdl(q_wrapped);
  const std::vector<double> clipped_pose = forwardKinematics_kdl(q_clipped);
  const double clipped_error = position_error(clipped_pose, target_pos);
  const std::string clipped_joints = format_clipped_joints(q_wrapped, q_clipped);
  if (clipped_joints == "[]" && !(clipped_error > kReportedPositionError)) {
    return;
  }
  std::ostringstream line;
  line << "solve_ik_kdl diagnostics: target_pos=" << format_double_vector(target_pos)
       << ", target_euler=" << format_double_vector(target_euler)
       << ", seed=" << format_double_vector(seed) << ", q_raw=" << format_double_vector(q_wrapped)
       << ", q_clipped=" << format_double_vector(q_clipped) << ", clipped_joints=" << clipped_joints
       << ", raw_fk_pos=" << format_triple(raw_pose)
       << ", clipped_fk_pos=" << format_triple(clipped_pose)
       << ", raw_pos_err_m=" << position_error(raw_pose, target_pos)
       << ", clipped_pos_err_m=" << clipped_error << '\n';
  std::cerr << line.str();
}

std::vector<double> RobotKinematics::forwardKinematics_kdl(const std::vector<double>& q) {
  check_joint_count(
      q.size(), "forwardKinematics_kdl: size mismatch between input vector and KDL chain joints");
  KDL::Frame pose;
  const int ret = fk_solver_->JntToCart(to_jnt_array(q), pose);
  if (ret < 0) {
    throw_solver_failure("forwardKinematics_kdl", ret);
  }
  std::vector<double> result{pose.p.x(), pose.p.y(), pose.p.z(), 0.0, 0.0, 0.0, 0.0};
  pose.M.GetQuaternion(result[3], result[4], result[5], result[6]);
  return result;
}

// ---- Torques --------------------------------------------------------------

std::vector<double> RobotKinematics::gravity_compensation_kdl(const std::vector<double>& q) const {
  check_joint_count(
      q.size(),
      "gravity_compensation_kdl: size mismatch between input vector and KDL chain joints");
  copy_to(dyn_param_->q, q.data());
  const int ret = dyn_param_->solver.JntToGravity(dyn_param_->q, dyn_param_->gravity);
  if (ret < 0) {
    throw_solver_failure("gravity_compensation_kdl", ret);
  }
  return to_vector(dyn_param_->gravity);
}

std::vector<double> RobotKinematics::coriolis_compensation_kdl(
    const std::vector<double>& q, const std::vector<double>& qd) const {
  // The text names the gravity function; programs match on it.
  constexpr const char* kMismatch =
      "gravity_compensation_kdl: size mismatch between input vector and KDL chain joints";
  check_joint_count(q.size(), kMismatch);
  check_joint_count(std::min(qd.size(), q.size()), kMismatch);
  copy_to(dyn_param_->q, q.data());
  copy_to(dyn_param_->qd, qd.data());
  const int ret =
      dyn_param_->solver.JntToCoriolis(dyn_param_->q, dyn_param_->qd, dyn_param_->coriolis);
  if (ret < 0) {
    throw_solver_failure("coriolis_compensation_kdl", ret);
  }
  return to_vector(dyn_param_->coriolis);
}

std::vector<double> RobotKinematics::dynamic_compensation_kdl(
    const std::vector<double>& q, const std::vector<double>& qd,
    const std::vector<double>& qdd) const {
  constexpr const char* kMismatch = "dynamic_compensation_kdl: size mismatch";
  check_joint_count(q.size(), kMismatch);
  check_joint_count(std::min({q.size(), qd.size(), qdd.size()}), kMismatch);
  std::vector<double> tau(q.size());
  inverse_dynamics(q.data(), qd.data(), qdd.data(), tau.data());
  return tau;
}

void RobotKinematics::inverse_dynamics(const double* q, const double* qd, const double* qdd,
                                       double* tau) const {
  Dynamics& dynamics = *dyn_param_;
  copy_to(dynamics.q, q);
  copy_to(dynamics.qd, qd);
  dynamics.solver.JntToMass(dynamics.q, dynamics.mass);
  dynamics.solver.JntToCoriolis(dynamics.q, dynamics.qd, dynamics.coriolis);
  dynamics.solver.JntToGravity(dynamics.q, dynamics.gravity);
  const auto joints = static_cast<unsigned>(num_joints_);
  for (unsigned i = 0; i < joints; ++i) {
    double torque = 0.0;
    for (unsigned j = 0; j < joints; ++j) {
      torque += dynamics.mass(i, j) * qdd[j];
    }
    tau[i] = torque + dynamics.coriolis(i) + dynamics.gravity(i);
  }
}
