#pragma once

#include <array>
#include <optional>

#include "kinematics/frame.hpp"
#include "kinematics/joint_range.hpp"

#include "description/joint_array.hpp"
#include "description/kinematics_settings.hpp"
#include "description/urdf.hpp"

class RobotKinematics;

namespace kelvara::kinematics {

/// Rows vx, vy, vz, wx, wy, wz of the tool in the base frame; one column per joint. m/rad and
/// rad/rad (m/m for the velocity that a prismatic joint causes).
using Jacobian = std::array<std::array<double, kJointCount>, 6>;

/// The position kinematics of a chain with six moving joints, the tool included. Fixed transforms
/// are merged at construction, into frames that each joint turns about its z axis. Immutable; any
/// threads. Nothing allocates.
class SixJointChain {
 public:
  /// Returns nothing for a chain without exactly six moving joints.
  static std::optional<SixJointChain> from(const description::UrdfDescription& urdf,
                                           const description::KinematicsConfig& config);

  /// The tool's frame in the base frame at the joint angles `q`; NaN angles give NaN.
  Frame tool_frame(const JointArray& q) const;
  /// The same, with the Jacobian of the tool point.
  Frame tool_frame(const JointArray& q, Jacobian& jacobian) const;
  /// The frames of the joints at zero angles, each turning about (sliding along) its z axis.
  std::array<Frame, kJointCount> joint_frames() const;

  const JointRanges& ranges() const { return ranges_; }

 private:
  SixJointChain() = default;

  void move(Frame& frame, std::size_t joint, double q) const;

  std::array<Frame, kJointCount + 1> links_;  // each in the one before; the last one is the tool
  JointRanges ranges_;
};

/// The chain of a model: what planners use in place of `RobotKinematics::pose()`.
/// @throws std::runtime_error for a model without exactly six moving joints.
const SixJointChain& six_joint_chain(const RobotKinematics& model);

}  // namespace kelvara::kinematics
