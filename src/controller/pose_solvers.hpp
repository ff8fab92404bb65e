#pragma once

#include <array>
#include <optional>
#include <vector>

#include "controller/thread_safety.hpp"
#include "kelvara/kinematics/kinematics.hpp"

#include "description/joint_array.hpp"
#include "motion/pose_stream.hpp"

namespace kelvara::controller {

/// Answers the pose calls of the application's threads from the arm's model. The KDL solvers keep
/// scratch state, so one mutex is held through each of their calls; the control thread, which uses
/// the model's torque functions alone, never waits for it.
class PoseSolvers {
 public:
  /// @param kinematics The model; must outlive this.
  explicit PoseSolvers(RobotKinematics& kinematics) : model_(kinematics), kinematics_(kinematics) {}

  /// Joint angles for a pose by damped least squares on the Jacobian; nothing when it does not
  /// converge, with a line on standard error.
  /// @param target_pos   x, y, z, m.
  /// @param target_euler Roll, pitch, yaw, rad.
  /// @param seed         Where the search starts, rad.
  std::optional<std::vector<double>> solve_by_jacobian(const std::vector<double>& target_pos,
                                                       const std::vector<double>& target_euler,
                                                       const JointArray& seed) const;
  /// Joint angles for a pose by KDL's solver, clamped to the joint limits; nothing when it fails.
  std::optional<std::vector<double>> solve_ik(const std::vector<double>& target_pos,
                                              const std::vector<double>& target_euler,
                                              const std::vector<double>& seed)
      KELVARA_EXCLUDES(kinematics_mutex);
  /// The tool pose at these angles: x, y, z in m, roll, pitch, yaw in rad.
  std::array<double, 6> end_effector_pose(const JointArray& q) KELVARA_EXCLUDES(kinematics_mutex);

  /// The velocity to command with the next solution of a stream. From one thread at a time.
  JointArray stream(const JointArray& q) { return pose_stream_.step(q, motion::Clock::now()); }

 private:
  Mutex kinematics_mutex;
  const RobotKinematics& model_;                                      // for the stateless functions
  RobotKinematics& kinematics_ KELVARA_GUARDED_BY(kinematics_mutex);  // for the KDL solvers
  motion::PoseStream pose_stream_;  // of the one thread that streams poses
};

}  // namespace kelvara::controller
