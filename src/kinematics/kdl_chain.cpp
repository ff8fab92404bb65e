#include "kinematics/kdl_chain.hpp"

#include <stdexcept>

#include <Eigen/Core>
#include <kdl/frames.hpp>

#include "kinematics/rotations.hpp"

namespace kelvara::kinematics {
namespace {

using description::Triple;
using description::UrdfJoint;

KDL::Vector to_kdl(const Triple& v) { return {v[0], v[1], v[2]}; }

KDL::Frame to_kdl_frame(const Triple& xyz, const Triple& rpy) {
  return {KDL::Rotation::RPY(rpy[0], rpy[1], rpy[2]), to_kdl(xyz)};
}

KDL::Joint fixed_joint(const std::string& name) { return KDL::Joint(name, KDL::Joint::None); }

KDL::Joint moving_joint(const UrdfJoint& joint, KDL::Joint::JointType type) {
  return KDL::Joint(joint.name, KDL::Vector::Zero(), to_kdl(joint.axis), type, 1.0, 0.0, 0.0, 0.0,
                    0.0);
}

KDL::Joint::JointType joint_type(const std::string& urdf_type) {
  if (urdf_type == "revolute" || urdf_type == "continuous") {
    return KDL::Joint::RotAxis;
  }
  if (urdf_type == "prismatic") {
    return KDL::Joint::TransAxis;
  }
  if (urdf_type == "fixed") {
    return KDL::Joint::None;
  }
  throw std::runtime_error("Unsupported URDF joint type: " + urdf_type);
}

void add_joint(KDL::Chain& chain, const UrdfJoint& joint, const KDL::RigidBodyInertia& inertia) {
  const KDL::Frame origin = to_kdl_frame(joint.origin_xyz, joint.origin_rpy);
  const KDL::Joint::JointType type = joint_type(joint.type);
  if (type == KDL::Joint::None) {
    chain.addSegment(KDL::Segment(joint.child, fixed_joint(joint.name), origin, inertia));
    return;
  }
  // The origin is a segment of its own, so that the joint turns about the axis in its own frame.
  chain.addSegment(KDL::Segment(joint.name + "_origin", fixed_joint(joint.name + "_origin_fixed"),
                                origin, KDL::RigidBodyInertia::Zero()));
  chain.addSegment(
      KDL::Segment(joint.child, moving_joint(joint, type), KDL::Frame::Identity(), inertia));
}

}  // namespace

KDL::RigidBodyInertia to_kdl_inertia(const description::UrdfInertial& inertial) {
  if (inertial.mass <= 0.0) {
    return KDL::RigidBodyInertia::Zero();
  }
  Eigen::Matrix3d tensor;
  tensor << inertial.ixx, inertial.ixy, inertial.ixz,  //
      inertial.ixy, inertial.iyy, inertial.iyz,        //
      inertial.ixz, inertial.iyz, inertial.izz;
  const Eigen::Matrix3d R =
      make_transform(Eigen::Vector3d::Zero(), Eigen::Vector3d(inertial.origin_rpy.data()))
          .topLeftCorner<3, 3>();
  const Eigen::Matrix3d rotated = R * tensor * R.transpose();
  return KDL::RigidBodyInertia(inertial.mass, to_kdl(inertial.origin_xyz),
                               KDL::RotationalInertia(rotated(0, 0), rotated(1, 1), rotated(2, 2),
                                                      rotated(0, 1), rotated(0, 2), rotated(1, 2)));
}

KDL::Chain build_kdl_chain(const description::UrdfDescription& urdf,
                           const description::KinematicsConfig& config) {
  KDL::Chain chain;
  for (const UrdfJoint& joint : urdf.joints) {
    const auto inertial = urdf.inertials.find(joint.child);
    add_joint(chain, joint,
              inertial == urdf.inertials.end() ? KDL::RigidBodyInertia::Zero()
                                               : to_kdl_inertia(inertial->second));
  }
  if (config.has_payload) {
    chain.addSegment(KDL::Segment("payload", fixed_joint("payload_fixed"), KDL::Frame::Identity(),
                                  to_kdl_inertia(config.payload)));
  }
  chain.addSegment(KDL::Segment("tool", fixed_joint("tool_fixed"),
                                to_kdl_frame(config.tool_xyz, config.tool_rpy),
                                KDL::RigidBodyInertia::Zero()));
  return chain;
}

}  // namespace kelvara::kinematics
