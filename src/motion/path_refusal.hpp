#pragma once

#include "description/joint_limits.hpp"
#include "motion/path_limits.hpp"
#include "motion/path_solution.hpp"

class RobotKinematics;

namespace kelvara::motion {

/// Refuses a tool's path that the joints cannot follow to its end inside their limits, or that
/// bends out of a limit which the start is beyond already.
/// @throws MotionError with the place on the path: `kOutOfReach`, `kJointLimit`, `kSingularity`,
///         `kBranchChange`.
void check_solution(const RobotKinematics& model, const ToolPath& tool,
                    const PathSolution& solution, const description::JointLimits& limits);

/// Refuses a path on which the joints can follow at a crawl only, because it passes a singularity.
/// @throws MotionError `kSingularity`.
void check_singularities(const RobotKinematics& model, const ToolPath& tool, const JointPath& path,
                         const PathLimits& limits);

}  // namespace kelvara::motion
