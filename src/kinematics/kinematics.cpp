#include "kelvara/kinematics/kinematics.hpp"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "kinematics/inverse_kinematics.hpp"
#include "kinematics/jacobian_ik.hpp"
#include "kinematics/kdl_solvers.hpp"
#include "kinematics/screw_motion.hpp"
#include "kinematics/six_joint_chain.hpp"
#include "kinematics/torque_solver.hpp"
#include "kinematics/turn_copies.hpp"

#include "description/file_search.hpp"
#include "description/kinematics_settings.hpp"
#include "description/urdf.hpp"
#include "diagnostics/line.hpp"

namespace description = kelvara::description;
namespace kinematics = kelvara::kinematics;

namespace {

std::vector<kinematics::ChainJoint> joints_of(const description::UrdfDescription& urdf) {
  std::vector<kinematics::ChainJoint> joints;
  for (const description::UrdfJoint& joint : urdf.joints) {
    joints.push_back({joint.name, joint.origin_xyz, joint.origin_rpy, joint.axis, joint.type});
  }
  return joints;
}

void print_reports(const description::UrdfDescription& urdf) {
  for (const description::UrdfJoint& joint : urdf.joints) {
    for (const std::string& report : joint.reports) {
      kelvara::diagnostics::error_line() << report;
    }
  }
}

template <std::size_t count>
void check_finite(const std::array<double, count>& values, const char* message) {
  if (!std::all_of(values.begin(), values.end(), [](double v) { return std::isfinite(v); })) {
    throw std::invalid_argument(message);
  }
}

kinematics::Frame finite_frame(const kelvara::Pose& pose) {
  const char* message = "inverse kinematics: the pose holds a value that is not finite";
  check_finite(pose.position, message);
  check_finite(pose.rpy, message);
  return kinematics::frame_of(pose);
}

std::optional<kinematics::InverseKinematics> inverse_kinematics_of(
    const description::UrdfDescription& urdf, const description::KinematicsConfig& config) {
  const auto chain = kinematics::SixJointChain::from(urdf, config);
  return chain ? std::optional<kinematics::InverseKinematics>(*chain) : std::nullopt;
}

/// The canonical path, also of a file that does not exist: opening it reports that.
std::string canonical_path(const std::string& path) {
  return std::filesystem::weakly_canonical(std::filesystem::absolute(path)).string();
}

}  // namespace

/// The four models of the same arm, which share no state, and what they were built from.
struct RobotKinematics::Model {
  Model(kelvara::DescriptionFiles read_files, const description::UrdfDescription& urdf,
        const description::KinematicsConfig& config)
      : files(std::move(read_files)),
        payload_mass(std::max(0.0, config.payload.mass)),
        motion(joints_of(urdf), config.tool_xyz, config.tool_rpy),
        poses(urdf, config),
        torques(poses.chain()),
        six_joints(inverse_kinematics_of(urdf, config)) {}

  kelvara::DescriptionFiles files;
  double payload_mass;  // kg
  kinematics::ScrewMotion motion;
  kinematics::KdlSolvers poses;
  kinematics::TorqueSolver torques;
  std::optional<kinematics::InverseKinematics> six_joints;  // nothing for another number of joints
};

RobotKinematics::RobotKinematics() : RobotKinematics({}, {}) {}

RobotKinematics::RobotKinematics(const std::string& urdf_path, const std::string& settings_path) {
  kelvara::DescriptionFiles files;
  files.settings_path = settings_path.empty()
                            ? kelvara::algorithms::resolve_robot_kinematics_config_path()
                            : canonical_path(settings_path);
  const description::KinematicsConfig config =
      description::load_kinematics_config(files.settings_path);
  files.urdf_path = urdf_path.empty() ? kelvara::algorithms::resolve_robot_urdf_path()
                                      : canonical_path(urdf_path);
  const description::UrdfDescription urdf = description::load_urdf(files.urdf_path);
  print_reports(urdf);
  model_ = std::make_unique<Model>(std::move(files), urdf, config);
  kelvara::diagnostics::output_line() << "urdf num_joints_: " << num_joints();
}

RobotKinematics::~RobotKinematics() = default;

// ---- Product of exponentials ----------------------------------------------

void RobotKinematics::forward_kinematics_array(const double* q, std::size_t count,
                                               double* T_base_tool) const {
  Eigen::Map<Eigen::Matrix4d>{T_base_tool} = model_->motion.forward_kinematics(q, count);
}

bool RobotKinematics::solve_jacobian_array(const double* target_pos, const double* target_euler,
                                           double* q, std::size_t count, double threshold_pos,
                                           double threshold_rot, int max_iterations,
                                           double damping) const {
  const kinematics::JacobianTarget target{Eigen::Vector3d(target_pos),
                                          Eigen::Vector3d(target_euler),
                                          threshold_pos,
                                          threshold_rot,
                                          max_iterations,
                                          damping};
  return kinematics::solve_jacobian_ik(
      model_->motion, target, Eigen::Map<Eigen::VectorXd>(q, static_cast<Eigen::Index>(count)));
}

void RobotKinematics::build_screw_axes() { model_->motion.build_screw_axes(); }

// ---- Arms of six joints ---------------------------------------------------

const kinematics::InverseKinematics& kinematics::inverse_kinematics(const RobotKinematics& model) {
  if (!model.model_->six_joints) {
    throw std::runtime_error("the chain has " + std::to_string(model.num_joints()) +
                             " moving joints; only a chain of six has poses of six angles");
  }
  return *model.model_->six_joints;
}

const kinematics::SixJointChain& kinematics::six_joint_chain(const RobotKinematics& model) {
  return kinematics::inverse_kinematics(model).chain();
}

kelvara::Pose RobotKinematics::pose(const std::array<double, 6>& q) const {
  return kinematics::pose_of(kinematics::six_joint_chain(*this).tool_frame(q));
}

std::array<std::array<double, 6>, 6> RobotKinematics::jacobian(
    const std::array<double, 6>& q) const {
  kinematics::Jacobian jacobian;
  kinematics::six_joint_chain(*this).tool_frame(q, jacobian);
  return jacobian;
}

std::vector<kelvara::PoseSolution> RobotKinematics::pose_solutions(
    const kelvara::Pose& pose) const {
  const kinematics::InverseKinematics& solver = kinematics::inverse_kinematics(*this);
  const kinematics::PoseSolutions found = solver.solutions(finite_frame(pose));
  std::vector<kelvara::PoseSolution> solutions;
  for (int k = 0; k < found.count; ++k) {
    for (const kelvara::JointArray& q :
         kinematics::turn_copies(solver.chain().ranges(), found.q[k])) {
      solutions.push_back({q, found.singular[k]});
    }
  }
  return solutions;
}

std::vector<std::array<double, 6>> RobotKinematics::inverse_kinematics_all(
    const kelvara::Pose& pose) const {
  std::vector<std::array<double, 6>> all;
  for (const kelvara::PoseSolution& solution : pose_solutions(pose)) {
    all.push_back(solution.q);
  }
  return all;
}

std::array<double, 6> RobotKinematics::solve_pose(const kelvara::Pose& pose,
                                                  const std::array<double, 6>& near) const {
  const kinematics::InverseKinematics& solver = kinematics::inverse_kinematics(*this);
  const kinematics::Frame target = finite_frame(pose);
  check_finite(near, "inverse kinematics: the joint angles hold a value that is not finite");
  return solver.solve(target, near);
}

// ---- KDL chain ------------------------------------------------------------

bool RobotKinematics::solve_ik_kdl(const std::vector<double>& target_pos,
                                   const std::vector<double>& target_euler,
                                   const std::vector<double>& seed, std::vector<double>& q_out) {
  return model_->poses.solve_ik_kdl(target_pos, target_euler, seed, q_out);
}

std::vector<double> RobotKinematics::forwardKinematics_kdl(const std::vector<double>& q) {
  return model_->poses.forwardKinematics_kdl(q);
}

std::vector<double> RobotKinematics::gravity_compensation_kdl(const std::vector<double>& q) const {
  return model_->torques.gravity_compensation_kdl(q);
}

std::vector<double> RobotKinematics::coriolis_compensation_kdl(
    const std::vector<double>& q, const std::vector<double>& qd) const {
  return model_->torques.coriolis_compensation_kdl(q, qd);
}

std::vector<double> RobotKinematics::dynamic_compensation_kdl(
    const std::vector<double>& q, const std::vector<double>& qd,
    const std::vector<double>& qdd) const {
  return model_->torques.dynamic_compensation_kdl(q, qd, qdd);
}

void RobotKinematics::inverse_dynamics(const double* q, const double* qd, const double* qdd,
                                       double* tau) const {
  model_->torques.inverse_dynamics(q, qd, qdd, tau);
}

// ---- The model's data -----------------------------------------------------

const kelvara::DescriptionFiles& RobotKinematics::description_files() const {
  return model_->files;
}

double RobotKinematics::payload_mass() const { return model_->payload_mass; }

int RobotKinematics::num_joints() const { return model_->poses.num_joints(); }

const std::vector<RobotKinematics::joint_t>& RobotKinematics::joints() const {
  return model_->motion.joints();
}

const std::vector<Eigen::Matrix<double, 6, 1>>& RobotKinematics::screw_axes() const {
  return model_->motion.screw_axes();
}

const std::vector<Eigen::Vector3d>& RobotKinematics::joint_axes() const {
  return model_->motion.joint_axes();
}

const std::vector<Eigen::Vector3d>& RobotKinematics::joint_points() const {
  return model_->motion.joint_points();
}

const std::vector<double>& RobotKinematics::joint_lower() const {
  return model_->poses.joint_lower();
}

const std::vector<double>& RobotKinematics::joint_upper() const {
  return model_->poses.joint_upper();
}

const std::vector<bool>& RobotKinematics::joint_has_limits() const {
  return model_->poses.joint_has_limits();
}

const void* RobotKinematics::home_address() const { return &model_->motion.home(); }

const KDL::Chain& RobotKinematics::chain() const { return model_->poses.chain(); }
