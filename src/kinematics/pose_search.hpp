#pragma once

#include "kinematics/pose_solutions.hpp"
#include "kinematics/six_joint_chain.hpp"

namespace kelvara::kinematics {

/// Searches the solutions of a pose for a chain of any geometry: damped Newton steps from the hint
/// and from a fixed sequence of seeds that covers the ranges evenly, until many seeds in a row have
/// found nothing new. About a millisecond. Does not allocate.
/// @param ranges Of the solutions; without limits for solutions beyond the limits.
PoseSolutions search_pose(const SixJointChain& chain, const Frame& target,
                          const JointRanges& ranges, const JointArray& hint);

}  // namespace kelvara::kinematics
