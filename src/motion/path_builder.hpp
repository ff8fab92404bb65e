#pragma once

#include <vector>

#include "kelvara/motion/planner.hpp"
#include "kinematics/six_joint_chain.hpp"

#include "description/joint_limits.hpp"
#include "motion/path_motion.hpp"

class RobotKinematics;

namespace kelvara::motion {

/// Turns the segments of a path into runs from rest to rest, and refuses what the arm cannot do.
class PathBuilder {
 public:
  /// @param model, limits, segments Must outlive the builder.
  PathBuilder(const RobotKinematics& model, const MotionLimits& limits,
              const std::vector<PathSegment>& segments);

  /// @throws std::invalid_argument, MotionError as `MotionPlanner::plan_path`.
  std::vector<PathRun> build(const JointArray& start);

 private:
  void add_joint_run();
  void add_tool_run();
  ToolPiece piece_from(const kinematics::Frame& from) const;
  kinematics::Frame end_of(std::size_t segment) const;
  bool is_joint() const { return segments_[next_].kind == PathSegment::Kind::kJoint; }

  const RobotKinematics& model_;
  const kinematics::SixJointChain& chain_;
  description::JointLimits joint_limits_;
  const MotionLimits& limits_;
  const std::vector<PathSegment>& segments_;
  std::size_t next_ = 0;  // segment
  JointArray q_{};        // where it starts
  std::vector<PathRun> runs_;
};

}  // namespace kelvara::motion
