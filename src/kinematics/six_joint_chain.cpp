#include "kinematics/six_joint_chain.hpp"

namespace kelvara::kinematics {
namespace {

/// A rotation that turns the z axis into the given one.
Rotation rotation_to(const std::array<double, 3>& axis) {
  const Vector3 z = normalized({axis[0], axis[1], axis[2]});
  if (std::abs(z.z) == 1.0) {
    return {{1.0, 0.0, 0.0}, {0.0, z.z, 0.0}, z};
  }
  const Vector3 x = normalized(cross({0.0, 0.0, 1.0}, z));
  return {x, cross(z, x), z};
}

JointRange range_of(const description::UrdfJoint& joint) {
  JointRange range;
  range.prismatic = joint.type == "prismatic";
  if (joint.has_limits) {
    range.lower = joint.lower;
    range.upper = joint.upper;
  }
  return range;
}

}  // namespace

std::optional<SixJointChain> SixJointChain::from(const description::UrdfDescription& urdf,
                                                 const description::KinematicsConfig& config) {
  SixJointChain chain;
  std::size_t count = 0;
  Frame link;
  for (const description::UrdfJoint& joint : urdf.joints) {
    link = link * frame_of({joint.origin_xyz, joint.origin_rpy});
    if (joint.type == "fixed") {
      continue;
    }
    if (count == kJointCount) {
      return std::nullopt;
    }
    const Frame turned{rotation_to(joint.axis), {}};
    chain.links_[count] = link * turned;
    chain.ranges_[count] = range_of(joint);
    link = inverse(turned);
    ++count;
  }
  chain.links_[kJointCount] = link * frame_of({config.tool_xyz, config.tool_rpy});
  return count == kJointCount ? std::optional(chain) : std::nullopt;
}

inline void SixJointChain::move(Frame& frame, std::size_t joint, double q) const {
  Rotation& R = frame.rotation;
  if (ranges_[joint].prismatic) {
    frame.position = frame.position + q * R.z;
    return;
  }
  const double c = std::cos(q);
  const double s = std::sin(q);
  const Vector3 x = R.x;
  R.x = c * x + s * R.y;
  R.y = c * R.y - s * x;
}

Frame SixJointChain::tool_frame(const JointArray& q) const {
  Frame frame = links_[0];
  for (std::size_t i = 0; i < kJointCount; ++i) {
    move(frame, i, q[i]);
    frame = frame * links_[i + 1];
  }
  return frame;
}

Frame SixJointChain::tool_frame(const JointArray& q, Jacobian& jacobian) const {
  std::array<Frame, kJointCount> joints;
  Frame frame = links_[0];
  for (std::size_t i = 0; i < kJointCount; ++i) {
    joints[i] = frame;
    move(frame, i, q[i]);
    frame = frame * links_[i + 1];
  }
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const Vector3& axis = joints[i].rotation.z;
    const Vector3 v =
        ranges_[i].prismatic ? axis : cross(axis, frame.position - joints[i].position);
    const Vector3 w = ranges_[i].prismatic ? Vector3{} : axis;
    jacobian[0][i] = v.x, jacobian[1][i] = v.y, jacobian[2][i] = v.z;
    jacobian[3][i] = w.x, jacobian[4][i] = w.y, jacobian[5][i] = w.z;
  }
  return frame;
}

std::array<Frame, kJointCount> SixJointChain::joint_frames() const {
  std::array<Frame, kJointCount> joints;
  Frame frame;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    frame = frame * links_[i];
    joints[i] = frame;
  }
  return joints;
}

}  // namespace kelvara::kinematics
