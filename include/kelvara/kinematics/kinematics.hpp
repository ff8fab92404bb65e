#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include <Eigen/Core>
#include <kdl/chain.hpp>

#include "kelvara/export.hpp"

namespace KDL {
class ChainFkSolverPos_recursive;
class ChainIkSolverPos_LMA;
}  // namespace KDL

namespace kelvara::algorithms {

/// The canonical path of "robot_kinematics.yaml", searched anew on every call: in the "config"
/// folders beside the loaded library, above it, in the current directory and above that; then bare
/// in the current directory, the library's, the one above it, and above the current one.
/// @throws std::runtime_error when there is none.
KELVARA_EXPORT std::string resolve_robot_kinematics_config_path();
/// The canonical path of the robot's URDF file; the same search.
KELVARA_EXPORT std::string resolve_robot_urdf_path();

}  // namespace kelvara::algorithms

/// The homogeneous transform of a translation (metres) and roll, pitch, yaw (radians):
/// R = Rz(yaw)·Ry(pitch)·Rx(roll).
KELVARA_EXPORT Eigen::Matrix4d t_from_xyzrpy(const Eigen::Vector3d& xyz,
                                             const Eigen::Vector3d& rpy);
/// The exponential of a screw axis S = (ω, v) times θ (Rodrigues' formula; Lynch and Park,
/// "Modern Robotics", 3.3.3). An ω shorter than 1e-12 gives the translation v·θ.
KELVARA_EXPORT Eigen::Matrix4d exp_se3(const Eigen::Matrix<double, 6, 1>& S, double theta);

/// The arm's geometric and dynamic model, built from the robot-description files: a product of
/// exponentials and a KDL chain of the same arm, the tool and the payload included.
///
/// Metres, radians and newton-metres; joint vectors in chain order, base first; poses in the base
/// frame. Read-only after construction. The product-of-exponentials functions may run on any
/// threads at once. The `_kdl` functions keep scratch state: calls of `solve_ik_kdl` and
/// `forwardKinematics_kdl` must not overlap each other, and calls of the torque functions must not
/// overlap each other; the two groups share nothing.
class KELVARA_EXPORT RobotKinematics {
 public:
  /// One joint of the URDF chain.
  struct joint_t {
    std::string name;
    std::array<double, 3> xyz;   // origin in the parent link, m
    std::array<double, 3> rpy;   // origin rotation, rad
    std::array<double, 3> axis;  // unit axis
  };

  /// What the Jacobian solver found; on failure the last iterate.
  struct IkResult {
    Eigen::VectorXd q;  // rad, one for each chain joint, inside [-π, π]
    bool success;
  };

  /// Finds and reads both files, builds both models, prints the number of moving joints.
  /// @throws std::runtime_error for a file that is missing or malformed.
  RobotKinematics();
  ~RobotKinematics();

  RobotKinematics(const RobotKinematics&) = delete;
  RobotKinematics& operator=(const RobotKinematics&) = delete;

  // ---- Product of exponentials ----

  /// The base-to-tool transform at the joint angles `q`, one for each chain joint.
  /// @throws std::runtime_error "关节数不匹配" for another number of angles.
  Eigen::Matrix4d forward_kinematics(const Eigen::VectorXd& q) const;
  /// (roll, pitch, yaw) of R = Rz(yaw)·Ry(pitch)·Rx(roll); yaw = 0 where pitch is ±90 degrees.
  Eigen::Vector3d rotation_matrix_to_euler(const Eigen::Matrix3d& R) const;
  /// The quaternion (x, y, z, w) of a rotation.
  Eigen::Vector4d rotation_matrix_to_quaternion(const Eigen::Matrix3d& R) const;
  /// The rotation vector (axis times angle, base frame) that leads from `q_current` to `q_target`,
  /// quaternions (x, y, z, w) of any length.
  Eigen::Vector3d quaternion_error(const Eigen::Vector4d& q_target,
                                   const Eigen::Vector4d& q_current) const;
  /// Inverse kinematics by damped least squares on a numerical Jacobian (one-sided differences).
  /// Joint limits are not applied. Not converging is a line on standard error.
  /// @param target_pos     Tool position, m.
  /// @param target_euler   Roll, pitch, yaw, rad.
  /// @param q_init         Start angles, one for each chain joint.
  /// @param threshold_pos  Position error that counts as solved, m.
  /// @param threshold_rot  Orientation error that counts as solved, rad.
  /// @param max_iterations Updates at most; 0 or less fails at once.
  /// @param damping        Added to the diagonal of JᵀJ.
  /// @throws std::runtime_error "关节数不匹配" for another number of start angles.
  IkResult inverse_kinematics_jacobian(const Eigen::Vector3d& target_pos,
                                       const Eigen::Vector3d& target_euler,
                                       const Eigen::VectorXd& q_init, double threshold_pos,
                                       double threshold_rot, int max_iterations,
                                       double damping) const;
  /// Computes the screw axes and the home transform from the joints and the tool.
  void build_screw_axes();

  // ---- KDL chain ----

  /// Inverse kinematics by Levenberg-Marquardt (KDL).
  /// @param target_pos   Tool position, 3 values.
  /// @param target_euler Roll, pitch, yaw, 3 values.
  /// @param seed         Start angles, one for each moving joint.
  /// @param q_out        The solution, wrapped to [-π, π] and clamped to the joint limits;
  ///                     untouched on failure. Clamping, and a position error above 1 mm after
  ///                     it, are reported in a line on standard error.
  /// @return false, with a line on standard error, when the solver fails.
  /// @throws std::invalid_argument for a wrong number of values.
  /// @throws std::runtime_error for a chain without a moving joint.
  bool solve_ik_kdl(const std::vector<double>& target_pos, const std::vector<double>& target_euler,
                    const std::vector<double>& seed, std::vector<double>& q_out);
  /// Tool position and quaternion: x, y, z, qx, qy, qz, qw.
  /// @throws std::runtime_error for a wrong number of angles or a failed solver.
  std::vector<double> forwardKinematics_kdl(const std::vector<double>& q);
  /// Gravity torques G(q), N·m.
  /// @throws std::runtime_error for a wrong number of angles or a failed solver.
  std::vector<double> gravity_compensation_kdl(const std::vector<double>& q) const;
  /// Coriolis and centrifugal torques C(q, qd), N·m.
  /// @throws std::runtime_error for a wrong number of angles, fewer velocities, or a failed solver;
  ///         the size message names gravity_compensation_kdl.
  std::vector<double> coriolis_compensation_kdl(const std::vector<double>& q,
                                                const std::vector<double>& qd) const;
  /// Inverse dynamics M(q)·qdd + C(q, qd) + G(q), N·m.
  /// @throws std::runtime_error for a wrong number of angles, fewer velocities or accelerations.
  std::vector<double> dynamic_compensation_kdl(const std::vector<double>& q,
                                               const std::vector<double>& qd,
                                               const std::vector<double>& qdd) const;
  /// `dynamic_compensation_kdl` without allocation: arrays of `num_joints()` values.
  void inverse_dynamics(const double* q, const double* qd, const double* qdd, double* tau) const;

  // ---- The model's data ----

  /// Moving joints of the KDL chain.
  int num_joints() const { return num_joints_; }
  /// Every chain joint, root to tip, fixed ones included.
  const std::vector<joint_t>& joints() const { return joints_; }
  const std::vector<Eigen::Matrix<double, 6, 1>>& screw_axes() const { return screw_axes_; }
  /// The rotation axis of each chain joint in the base frame at zero angles.
  const std::vector<Eigen::Vector3d>& joint_axes() const { return joint_axes_; }
  /// A point on each axis at zero angles.
  const std::vector<Eigen::Vector3d>& joint_points() const { return joint_points_; }
  /// Position limits of each chain joint, rad; meaningful where `joint_has_limits()` is true.
  const std::vector<double>& joint_lower() const { return joint_lower_; }
  const std::vector<double>& joint_upper() const { return joint_upper_; }
  const std::vector<bool>& joint_has_limits() const { return joint_has_limits_; }
  /// Base-to-tool transform at zero angles.
  const Eigen::Matrix4d& home() const { return home_; }
  const KDL::Chain& chain() const { return chain_; }

 private:
  struct Dynamics;
  struct JacobianWork;

  void check_screw_count(const Eigen::VectorXd& q) const;
  void fill_jacobian(const Eigen::Vector3d& position, const Eigen::Vector4d& orientation,
                     JacobianWork& work) const;
  void check_joint_count(std::size_t count, const char* message) const;
  void report_ik_solution(const std::vector<double>& target_pos,
                          const std::vector<double>& target_euler, const std::vector<double>& seed,
                          const std::vector<double>& q_wrapped,
                          const std::vector<double>& q_clipped);
  void create_solvers();

  std::vector<joint_t> joints_;
  std::array<double, 3> tool_xyz_{};
  std::array<double, 3> tool_rpy_{};
  std::vector<Eigen::Matrix<double, 6, 1>> screw_axes_;
  std::vector<Eigen::Vector3d> joint_axes_;
  std::vector<Eigen::Vector3d> joint_points_;
  std::vector<double> joint_lower_;
  std::vector<double> joint_upper_;
  std::vector<bool> joint_has_limits_;
  Eigen::Matrix4d home_ = Eigen::Matrix4d::Identity();
  std::size_t n_ = 0;
  int num_joints_ = 0;
  KDL::Chain chain_;
  std::unique_ptr<KDL::ChainIkSolverPos_LMA> ik_solver_;
  std::unique_ptr<KDL::ChainFkSolverPos_recursive> fk_solver_;
  std::unique_ptr<Dynamics> dyn_param_;  // with a chain of its own: KDL joints cache their pose
};
