#include "kinematics/kdl_solvers.hpp"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <stdexcept>
#include <string>

#include <Eigen/Core>
#include <kdl/frames.hpp>
#include <kdl/jntarray.hpp>

#include "kinematics/kdl_arrays.hpp"
#include "kinematics/kdl_chain.hpp"

#include "description/classic_stream.hpp"
#include "diagnostics/line.hpp"

namespace kelvara::kinematics {
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

std::string format_double_vector(const std::vector<double>& values) {
  description::ClassicStream text;
  text << std::fixed << std::setprecision(6) << '[';
  for (std::size_t i = 0; i < values.size(); ++i) {
    text << (i == 0 ? "" : ", ") << values[i];
  }
  text << ']';
  return text.str();
}

/// "[a, b, c]" of the first three values, in the stream's default format.
std::string format_triple(const std::vector<double>& values) {
  description::ClassicStream text;
  text << '[' << values[0] << ", " << values[1] << ", " << values[2] << ']';
  return text.str();
}

std::string format_clipped_joints(const std::vector<double>& wrapped,
                                  const std::vector<double>& clipped) {
  description::ClassicStream text;
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
      fk_solver_(chain_) {
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
  KDL::JntArray q_raw(static_cast<unsigned>(num_joints_));
  const int ret = ik_solver_.CartToJnt(to_jnt_array(seed), target, q_raw);
  // For a non-finite target the solver may report success and return NaN angles.
  if (ret < 0 || !q_raw.data.allFinite()) {
    report_failure(ret, ik_solver_.strError(ret), target_pos, target_euler);
    return false;
  }
  std::vector<double> q_wrapped = to_vector(q_raw);
  q_out.resize(q_wrapped.size());
  for (std::size_t j = 0; j < q_wrapped.size(); ++j) {
    q_wrapped[j] = wrap_to_pi(q_wrapped[j]);
    q_out[j] = clamp_to_limits(j, q_wrapped[j]);
  }
  report_solution(target_pos, target_euler, seed, q_wrapped, q_out);
  return true;
}

void KdlSolvers::report_solution(const std::vector<double>& target_pos,
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
  diagnostics::error_line() << "solve_ik_kdl diagnostics: target_pos="
                            << format_double_vector(target_pos)
                            << ", target_euler=" << format_double_vector(target_euler)
                            << ", seed=" << format_double_vector(seed)
                            << ", q_raw=" << format_double_vector(q_wrapped)
                            << ", q_clipped=" << format_double_vector(q_clipped)
                            << ", clipped_joints=" << clipped_joints
                            << ", raw_fk_pos=" << format_triple(raw_pose)
                            << ", clipped_fk_pos=" << format_triple(clipped_pose)
                            << ", raw_pos_err_m=" << position_error(raw_pose, target_pos)
                            << ", clipped_pos_err_m=" << clipped_error;
}

std::vector<double> KdlSolvers::forwardKinematics_kdl(const std::vector<double>& q) {
  check_joint_count(
      q.size(), num_joints_,
      "forwardKinematics_kdl: size mismatch between input vector and KDL chain joints");
  KDL::Frame pose;
  check_result("forwardKinematics_kdl", fk_solver_.JntToCart(to_jnt_array(q), pose));
  std::vector<double> result{pose.p.x(), pose.p.y(), pose.p.z(), 0.0, 0.0, 0.0, 0.0};
  pose.M.GetQuaternion(result[3], result[4], result[5], result[6]);
  return result;
}

}  // namespace kelvara::kinematics
