#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "kelvara/description/description_files.hpp"
#include "kelvara/description/file_search.hpp"
#include "kelvara/export.hpp"
#include "kelvara/kinematics/chain_joint.hpp"
#include "kelvara/kinematics/pose_solution.hpp"
#include "kelvara/kinematics/transforms.hpp"
#include "kelvara/pose.hpp"

class RobotKinematics;

namespace KDL {
class Chain;
}

namespace kelvara::kinematics {
class InverseKinematics;
const InverseKinematics& inverse_kinematics(const RobotKinematics& model);
}  // namespace kelvara::kinematics

/// The arm's geometric and dynamic model, built from the robot-description files: a product of
/// exponentials and a KDL chain of the same arm, the tool and the payload included.
///
/// Metres, radians and newton-metres; joint vectors in chain order, base first; poses in the base
/// frame. Read-only after construction. The product-of-exponentials functions and the torque
/// functions may run on any threads at once. `solve_ik_kdl` and `forwardKinematics_kdl` keep
/// scratch state: their calls must not overlap each other.
class KELVARA_EXPORT RobotKinematics {
 public:
  using joint_t = kelvara::kinematics::ChainJoint;

  /// Result of the Jacobian solver; on failure the last iterate.
  struct IkResult {
    Eigen::VectorXd q;  // rad, one for each chain joint, inside [-π, π]
    bool success;
  };

  /// Finds and reads both files, builds both models, prints the number of moving joints.
  /// @throws std::runtime_error for a file that is missing or malformed.
  RobotKinematics();
  /// Does the same with the files that are given; an empty path stands for the search.
  /// @throws std::runtime_error for a file that is missing or malformed.
  RobotKinematics(const std::string& urdf_path, const std::string& settings_path);
  ~RobotKinematics();

  RobotKinematics(const RobotKinematics&) = delete;
  RobotKinematics& operator=(const RobotKinematics&) = delete;

  // ---- Product of exponentials ----

  /// Returns the base-to-tool transform at the joint angles `q`, one for each chain joint.
  /// @throws std::runtime_error "关节数不匹配" for another number of angles.
  KELVARA_INLINE Eigen::Matrix4d forward_kinematics(const Eigen::VectorXd& q) const;
  /// Returns (roll, pitch, yaw) of R = Rz(yaw)·Ry(pitch)·Rx(roll); yaw = 0 where pitch is ±90
  /// degrees.
  KELVARA_INLINE Eigen::Vector3d rotation_matrix_to_euler(const Eigen::Matrix3d& R) const;
  /// Returns the quaternion (x, y, z, w) of a rotation.
  KELVARA_INLINE Eigen::Vector4d rotation_matrix_to_quaternion(const Eigen::Matrix3d& R) const;
  /// Returns the rotation vector (axis times angle, base frame) from `q_current` to `q_target`,
  /// quaternions (x, y, z, w) of any length.
  KELVARA_INLINE Eigen::Vector3d quaternion_error(const Eigen::Vector4d& q_target,
                                                  const Eigen::Vector4d& q_current) const;
  /// Solves the inverse kinematics by damped least squares on a numerical Jacobian (one-sided
  /// differences). Ignores the joint limits. Writes a line to standard error when it does not
  /// converge.
  /// @param target_pos     Tool position, m.
  /// @param target_euler   Roll, pitch, yaw, rad.
  /// @param q_init         Start angles, one for each chain joint.
  /// @param threshold_pos  Position error that counts as solved, m.
  /// @param threshold_rot  Orientation error that counts as solved, rad.
  /// @param max_iterations Updates at most; 0 or less fails at once.
  /// @param damping        Added to the diagonal of JᵀJ.
  /// @throws std::runtime_error "关节数不匹配" for another number of start angles.
  KELVARA_INLINE IkResult inverse_kinematics_jacobian(const Eigen::Vector3d& target_pos,
                                                      const Eigen::Vector3d& target_euler,
                                                      const Eigen::VectorXd& q_init,
                                                      double threshold_pos, double threshold_rot,
                                                      int max_iterations, double damping) const;
  /// Computes the screw axes and the home transform from the joints and the tool, as the
  /// constructor does. Must not overlap any other call.
  void build_screw_axes();

  // ---- Arms of six joints: plain arrays, any threads ----
  //
  // All of these throw std::runtime_error for a chain without exactly six moving joints. `pose` and
  // `jacobian` do not allocate.

  /// Returns the pose of the tool at the joint angles `q` (rad). Pitch lies within ±90 degrees, and
  /// the angles give back the tool's rotation to rounding at any pitch; yaw = 0 where pitch is ±90
  /// degrees. NaN angles give NaN.
  kelvara::Pose pose(const std::array<double, 6>& q) const;
  /// Returns the geometric Jacobian of the tool point in the base frame at `q` (rad): rows vx, vy,
  /// vz, wx, wy, wz, one column per joint; m/rad and rad/rad.
  std::array<std::array<double, 6>, 6> jacobian(const std::array<double, 6>& q) const;
  /// Returns all joint angles within the joint limits that bring the tool to a pose, distinct by
  /// more than 1e-6 rad, each exact to 1e-9 m and rad; up to eight, and for joints whose limits are
  /// more than a full turn apart each full turn of them too. Empty when there are none. Of a
  /// singular pose, which a continuum of angles reaches, it holds representatives. In closed form,
  /// microseconds, where the arm's axes 2, 3 and 4 are parallel and its axes 5 and 6 meet; Newton
  /// steps from there where they nearly do; for other arms a numeric search of milliseconds, which
  /// may miss solutions.
  /// @throws std::invalid_argument for a pose that is not finite.
  std::vector<std::array<double, 6>> inverse_kinematics_all(const kelvara::Pose& pose) const;
  /// Returns the same solutions, and which of them represent a continuum.
  /// @throws std::invalid_argument for a pose that is not finite.
  std::vector<kelvara::PoseSolution> pose_solutions(const kelvara::Pose& pose) const;
  /// Returns the solution nearest to the joint angles `near`: the one with the least sum of squared
  /// differences, full turns within the limits taken into account. At a singular pose, the angle
  /// that is free stays as it is in `near` if that leads to a solution.
  /// @throws kelvara::MotionError kOutOfReach when no joint angles reach the pose; kJointLimit when
  ///         some would, with the joint that stands furthest beyond its limit in the solution that
  ///         exceeds the limits least.
  /// @throws std::invalid_argument for values that are not finite.
  std::array<double, 6> solve_pose(const kelvara::Pose& pose,
                                   const std::array<double, 6>& near) const;

  // ---- KDL chain ----

  /// Solves the inverse kinematics by Levenberg-Marquardt (KDL).
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
  /// Returns the tool's position and quaternion: x, y, z, qx, qy, qz, qw.
  /// @throws std::runtime_error for a wrong number of angles or a failed solver.
  std::vector<double> forwardKinematics_kdl(const std::vector<double>& q);
  /// Returns the gravity torques G(q), N·m.
  /// @throws std::runtime_error for a wrong number of angles.
  std::vector<double> gravity_compensation_kdl(const std::vector<double>& q) const;
  /// Returns the Coriolis and centrifugal torques C(q, qd), N·m.
  /// @throws std::runtime_error for a wrong number of angles or fewer velocities; the message names
  ///         gravity_compensation_kdl.
  std::vector<double> coriolis_compensation_kdl(const std::vector<double>& q,
                                                const std::vector<double>& qd) const;
  /// Returns the inverse dynamics M(q)·qdd + C(q, qd) + G(q), N·m.
  /// @throws std::runtime_error for a wrong number of angles, fewer velocities or accelerations.
  std::vector<double> dynamic_compensation_kdl(const std::vector<double>& q,
                                               const std::vector<double>& qd,
                                               const std::vector<double>& qdd) const;
  /// Computes `dynamic_compensation_kdl` on arrays of `num_joints()` values, without allocation for
  /// up to 16 joints.
  void inverse_dynamics(const double* q, const double* qd, const double* qdd, double* tau) const;

  // ---- The model's data: references are valid as long as the model ----

  /// The two files that the model was read from.
  const kelvara::DescriptionFiles& description_files() const;
  /// Mass of the payload, kg; 0 for a negative mass and without a payload.
  double payload_mass() const;
  /// Moving joints of the KDL chain.
  int num_joints() const;
  /// Every chain joint, root to tip, fixed ones included.
  const std::vector<joint_t>& joints() const;
  /// The screw axis (ω, v) of each chain joint in the base frame at zero angles.
  const std::vector<Eigen::Matrix<double, 6, 1>>& screw_axes() const;
  /// The rotation axis of each chain joint in the base frame at zero angles.
  const std::vector<Eigen::Vector3d>& joint_axes() const;
  /// A point on each axis at zero angles, m.
  const std::vector<Eigen::Vector3d>& joint_points() const;
  /// Position limits of each chain joint, rad; meaningful where `joint_has_limits()` is true.
  const std::vector<double>& joint_lower() const;
  const std::vector<double>& joint_upper() const;
  const std::vector<bool>& joint_has_limits() const;
  /// Base-to-tool transform at zero angles.
  KELVARA_INLINE const Eigen::Matrix4d& home() const;
  /// The KDL chain; a program that reads it includes and links KDL itself.
  const KDL::Chain& chain() const;

 private:
  struct KELVARA_HIDDEN Model;
  friend const kelvara::kinematics::InverseKinematics& kelvara::kinematics::inverse_kinematics(
      const RobotKinematics& model);

  // What the Eigen signatures wrap, on plain arrays.
  void forward_kinematics_array(const double* q, std::size_t count, double* T_base_tool) const;
  /// `q`: start angles in, the last iterate out.
  bool solve_jacobian_array(const double* target_pos, const double* target_euler, double* q,
                            std::size_t count, double threshold_pos, double threshold_rot,
                            int max_iterations, double damping) const;
  const void* home_address() const;

  std::unique_ptr<Model> model_;
};

// ---- Eigen signatures -----------------------------------------------------
//
// How Eigen aligns and allocates depends on the compiler flags (-mavx2, -march=native). No Eigen
// object is therefore passed to the library or returned by it: what follows is compiled with the
// program's flags and passes plain arrays. References to the library's own objects are read alike
// under all flags: they are aligned for every instruction set, or need no more than 16 bytes.

static_assert(sizeof(Eigen::Matrix4d) == 16 * sizeof(double) && alignof(Eigen::Matrix4d) <= 64 &&
                  !Eigen::Matrix4d::IsRowMajor,
              "home() refers to 16 doubles, column by column, aligned to 64 bytes");
static_assert(sizeof(Eigen::Vector3d) == 3 * sizeof(double) && alignof(Eigen::Vector3d) <= 16,
              "joint_axes() and joint_points() refer to vectors of 3 doubles");
static_assert(sizeof(Eigen::Matrix<double, 6, 1>) == 6 * sizeof(double) &&
                  alignof(Eigen::Matrix<double, 6, 1>) <= 16,
              "screw_axes() refers to vectors of 6 doubles");

inline Eigen::Matrix4d RobotKinematics::forward_kinematics(const Eigen::VectorXd& q) const {
  Eigen::Matrix4d T;
  forward_kinematics_array(q.data(), static_cast<std::size_t>(q.size()), T.data());
  return T;
}

inline Eigen::Vector3d RobotKinematics::rotation_matrix_to_euler(const Eigen::Matrix3d& R) const {
  Eigen::Vector3d rpy;
  kelvara::kinematics::arrays::rotation_matrix_to_euler(R.data(), rpy.data());
  return rpy;
}

inline Eigen::Vector4d RobotKinematics::rotation_matrix_to_quaternion(
    const Eigen::Matrix3d& R) const {
  Eigen::Vector4d xyzw;
  kelvara::kinematics::arrays::rotation_matrix_to_quaternion(R.data(), xyzw.data());
  return xyzw;
}

inline Eigen::Vector3d RobotKinematics::quaternion_error(const Eigen::Vector4d& q_target,
                                                         const Eigen::Vector4d& q_current) const {
  Eigen::Vector3d error;
  kelvara::kinematics::arrays::quaternion_error(q_target.data(), q_current.data(), error.data());
  return error;
}

inline RobotKinematics::IkResult RobotKinematics::inverse_kinematics_jacobian(
    const Eigen::Vector3d& target_pos, const Eigen::Vector3d& target_euler,
    const Eigen::VectorXd& q_init, double threshold_pos, double threshold_rot, int max_iterations,
    double damping) const {
  IkResult result{q_init, false};
  result.success = solve_jacobian_array(target_pos.data(), target_euler.data(), result.q.data(),
                                        static_cast<std::size_t>(result.q.size()), threshold_pos,
                                        threshold_rot, max_iterations, damping);
  return result;
}

inline const Eigen::Matrix4d& RobotKinematics::home() const {
  return *static_cast<const Eigen::Matrix4d*>(home_address());
}
