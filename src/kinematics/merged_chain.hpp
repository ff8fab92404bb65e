#pragma once

#include <vector>

#include <Eigen/Core>
#include <kdl/chain.hpp>

namespace kelvara::kinematics {

/// A moving joint and all that is rigidly fixed behind it. The link's frame has its origin on the
/// joint's axis, which is its z axis.
struct MergedLink {
  bool is_prismatic;
  Eigen::Matrix3d R_parent_link;  // at joint position 0; parent: the previous link, or the base
  Eigen::Vector3d p_parent_link;  // m
  double mass;                    // kg
  Eigen::Vector3d first_moment;   // mass times centre of mass, kg·m
  Eigen::Matrix3d inertia;        // about the frame's origin, kg·m²
};

/// Returns one link for each moving joint, base first. What is fixed to the base is left out: no
/// joint carries it.
std::vector<MergedLink> merge_fixed_joints(const KDL::Chain& chain);

}  // namespace kelvara::kinematics
