#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include <Eigen/Geometry>

#include "description/joint_array.hpp"

class RobotKinematics;

namespace kelvara::collision {

/// A frame of the chain: 0 is the base, i moves with joint i.
using Frames = std::array<Eigen::Isometry3d, kJointCount + 1>;

/// A chain of six rotating joints, the fixed ones between them merged into their neighbours.
class LinkFrames {
 public:
  /// Where the link behind one joint of the model's chain is.
  struct Place {
    std::size_t frame = 0;
    Eigen::Isometry3d pose = Eigen::Isometry3d::Identity();  // in that frame
  };

  /// @throws std::invalid_argument unless the model has six moving joints, all of them rotating.
  explicit LinkFrames(const RobotKinematics& model);

  /// Of the link behind each chain joint, fixed ones included.
  const std::vector<Place>& places() const { return places_; }
  /// The tool in the last frame.
  const Eigen::Isometry3d& tool() const { return tool_; }
  /// Every frame in the base frame at the joint angles `q`.
  Frames at(const JointArray& q) const;
  /// Upper bounds of the distance between each joint's axis and a point that lies `radius` from the
  /// origin of a frame; 0 for the joints that do not move `frame` against `fixed`.
  JointArray lever_arms(std::size_t fixed, std::size_t frame, double radius) const;

 private:
  std::vector<Place> places_;
  std::array<Eigen::Isometry3d, kJointCount> offset_;  // joint i + 1 in frame i, at zero
  std::array<Eigen::Vector3d, kJointCount> axis_;
  Eigen::Isometry3d tool_;
};

}  // namespace kelvara::collision
