#include "kinematics/kdl_solvers.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iomanip>
#include <span>
#include <stdexcept>
#include <string>

#include <Eigen/Core>
#include <kdl/frames.hpp>

#include "kinematics/kdl_arrays.hpp"
#include "kinematics/kdl_chain.hpp"

#include "description/classic_stream.hpp"
#include "diagnostics/line.hpp"

namespace kelvara::kinematics {
namespace {

using Values = std::span<const double>;

constexpr double kPi = 3.14159265358979323846;
constexpr double kIkTolerance = 1e-5;
constexpr int kIkMaxIterations = 500;
constexpr double kIkJointStepTolerance = 1e-15;
constexpr double kReportedClip = 1e-9;            // rad
constexpr double kReportedPositionError = 0.001;  // m

void copy_to(KDL::JntArray& array, const std::vector<double>& values) {
  std::copy(values.begin(), values.end(), array.data.data());
}

Values values_of(const KDL::JntArray& array) { return {array.data.data(), array.rows()}; }

double wrap_to_pi(double angle) {
  // Subtracting turns one at a time is slow for a large angle, and never ends for a huge one.
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

std::string format_double_vector(Values values) {
  description::ClassicStream text;
  text << std::fixed << std::setprecision(6) << '[';
  for (std::size_t i = 0; i < values.size(); ++i) {
    text << (i == 0 ? "" : ", ") << values[i];
  }
  text << ']';
  return text.str();
}

/// "[a, b, c]" of the first three values, in the stream's default format.
std::string format_triple(Values values) {
  description::ClassicStream text;
  text << '[' << values[0] << ", " << values[1] << ", " << values[2] << ']';
  return text.str();
}

bool is_clipped(double wrapped, double clipped) {
  return std::abs(clipped - wrapped) > kReportedClip;
}

std::string format_clipped_joints(Values wrapped, Values clipped) {
  description::ClassicStream text;
  const char* separator = "";
  text << '[';
  for (std::size_t j = 0; j < wrapped.size(); ++j) {
    if (is_clipped(wrapped[j], clipped[j])) {
      text << separator << "joint" << j + 1 << ": " << wrapped[j] << " -> " << clipped[j];
      separator = ", ";
    }
  }
  text << ']';
  return text.str();
}

double position_error(const KDL::Vector& position, const std::vector<double>& target) {
  return std::hypot(position[0] - target[0], position[1] - target[1], position[2] - target[2]);
}

/// Writes the line of a target that the solver could not reach.
void report_failure(int ret, const char* reason, const std::vector<double>& target_pos,
                    const std::vector<double>& target_euler) {
  diagnostics::error_line() << "solve_ik_kdl failed: ret=" << ret << ", reason=" << reason
                            << ", target_pos=" << format_triple(target_pos)
                            << ", target_euler=" << format_triple(target_euler);
}

}  // namespace

KdlSolvers::KdlSolvers(const description::UrdfDescription& urdf,
                       const description::KinematicsConfig& config)
    : chain_(build_kdl_chain(urdf, config)),
      num_joints_(static_cast<int>(chain_.getNrOfJoints())),
      ik_solver_(chain_, Eigen::Matrix<double, 6, 1>::Ones(), kIkTolerance, kIkMaxIterations,
                 kIkJointStepTolerance),
      fk_solver_(chain_),
      seed_(chain_.getNrOfJoints()),
      q_wrapped_(chain_.getNrOfJoints()),
      q_clipped_(chain_.getNrOfJoints()) {
  for (const description::UrdfJoint& joint : urdf.joints) {
    joint_lower_.push_back(joint.lower);
    joint_upper_.push_back(joint.upper);
    joint_has_limits_.push_back(joint.has_limits);
  }
}

void KdlSolvers::check_ik_sizes(const std::vector<double>& target_pos,
                                const std::vector<double>& target_euler,
                                const std::vector<double>& seed) const {
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
}

double KdlSolvers::clamp_to_limits(std::size_t joint, double angle) const {
  if (!joint_has_limits_[joint]) {
    return angle;
  }
  return angle < joint_lower_[joint] ? joint_lower_[joint] : std::min(joint_upper_[joint], angle);
}

bool KdlSolvers::solve_ik_kdl(const std::vector<double>& target_pos,
                              const std::vector<double>& target_euler,
                              const std::vector<double>& seed, std::vector<double>& q_out) {
  check_ik_sizes(target_pos, target_euler, seed);
  const KDL::Frame target(KDL::Rotation::RPY(target_euler[0], target_euler[1], target_euler[2]),
                          KDL::Vector(target_pos[0], target_pos[1], target_pos[2]));
  copy_to(seed_, seed);
  const int ret = ik_solver_.CartToJnt(seed_, target, q_wrapped_);
  // For a non-finite target the solver may report success and return NaN angles.
  if (ret < 0 || !q_wrapped_.data.allFinite()) {
    report_failure(ret, ik_solver_.strError(ret), target_pos, target_euler);
    return false;
  }
  q_out.resize(seed_.rows());
  for (unsigned j = 0; j < seed_.rows(); ++j) {
    q_wrapped_(j) = wrap_to_pi(q_wrapped_(j));
    q_clipped_(j) = clamp_to_limits(j, q_wrapped_(j));
    q_out[j] = q_clipped_(j);
  }
  report_solution(target_pos, target_euler, seed);
  return true;
}

void KdlSolvers::report_solution(const std::vector<double>& target_pos,
                                 const std::vector<double>& target_euler,
                                 const std::vector<double>& seed) {
  const Values wrapped = values_of(q_wrapped_);
  const Values clipped = values_of(q_clipped_);
  const KDL::Vector clipped_position = pose_at(q_clipped_).p;
  const double clipped_error = position_error(clipped_position, target_pos);
  if (std::equal(wrapped.begin(), wrapped.end(), clipped.begin(), std::not_fn(is_clipped)) &&
      !(clipped_error > kReportedPositionError)) {
    return;
  }
  const KDL::Vector raw_position = pose_at(q_wrapped_).p;
  diagnostics::error_line() << "solve_ik_kdl diagnostics: target_pos="
                            << format_double_vector(target_pos)
                            << ", target_euler=" << format_double_vector(target_euler)
                            << ", seed=" << format_double_vector(seed)
                            << ", q_raw=" << format_double_vector(wrapped)
                            << ", q_clipped=" << format_double_vector(clipped)
                            << ", clipped_joints=" << format_clipped_joints(wrapped, clipped)
                            << ", raw_fk_pos=" << format_triple(raw_position.data)
                            << ", clipped_fk_pos=" << format_triple(clipped_position.data)
                            << ", raw_pos_err_m=" << position_error(raw_position, target_pos)
                            << ", clipped_pos_err_m=" << clipped_error;
}

KDL::Frame KdlSolvers::pose_at(const KDL::JntArray& q) {
  KDL::Frame pose;
  check_result("forwardKinematics_kdl", fk_solver_.JntToCart(q, pose));
  return pose;
}

std::vector<double> KdlSolvers::forwardKinematics_kdl(const std::vector<double>& q) {
  check_joint_count(
      q.size(), num_joints_,
      "forwardKinematics_kdl: size mismatch between input vector and KDL chain joints");
  copy_to(seed_, q);
  const KDL::Frame pose = pose_at(seed_);
  std::vector<double> result{pose.p.x(), pose.p.y(), pose.p.z(), 0.0, 0.0, 0.0, 0.0};
  pose.M.GetQuaternion(result[3], result[4], result[5], result[6]);
  return result;
}

}  // namespace kelvara::kinematics
