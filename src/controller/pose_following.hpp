#pragma once

#include <optional>

#include "controller/thread_safety.hpp"
#include "kelvara/pose.hpp"

#include "description/joint_array.hpp"
#include "motion/clock.hpp"

class RobotKinematics;

namespace kelvara::controller {

/// Joint angles for the poses of a stream, all in one configuration of the arm. Any thread.
class PoseFollowing {
 public:
  /// @param kinematics Must outlive it.
  explicit PoseFollowing(const RobotKinematics& kinematics) : kinematics_(kinematics) {}

  /// Solves a pose next to the one before, or, for the first one of a stream, next to where the
  /// command stands.
  /// @throws MotionError of `RobotKinematics::solve_pose`, and `kBranchChange` when a joint would
  ///         have to turn much farther than the tool moves.
  JointArray solve(const Pose& pose, const JointArray& standing, motion::TimePoint now)
      KELVARA_EXCLUDES(mutex_);

 private:
  struct Followed {
    JointArray q{};  // rad
    motion::TimePoint time;
  };

  const RobotKinematics& kinematics_;
  Mutex mutex_;
  std::optional<Followed> last_ KELVARA_GUARDED_BY(mutex_);
};

}  // namespace kelvara::controller
