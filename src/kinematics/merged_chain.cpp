#include "kinematics/merged_chain.hpp"

#include <Eigen/Geometry>
#include <kdl/frames.hpp>
#include <kdl/rigidbodyinertia.hpp>

namespace kelvara::kinematics {
namespace {

Eigen::Vector3d to_eigen(const KDL::Vector& v) { return {v.x(), v.y(), v.z()}; }

Eigen::Matrix3d to_eigen(const double (&rows)[9]) {
  return Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(rows);
}

/// The rotation whose z axis is `axis`, a unit vector.
KDL::Rotation with_z_along(const KDL::Vector& axis) {
  const Eigen::Vector3d x = to_eigen(axis).unitOrthogonal();
  const KDL::Vector kdl_x(x.x(), x.y(), x.z());
  return {kdl_x, axis * kdl_x, axis};
}

MergedLink link_of(const KDL::Joint& joint, const KDL::Frame& T_parent_link) {
  MergedLink link{};
  link.is_prismatic = joint.getType() == KDL::Joint::TransAxis;
  link.R_parent_link = to_eigen(T_parent_link.M.data);
  link.p_parent_link = to_eigen(T_parent_link.p);
  return link;
}

void set_inertia(MergedLink& link, const KDL::RigidBodyInertia& body) {
  link.mass = body.getMass();
  link.first_moment = to_eigen(body.getMass() * body.getCOG());
  link.inertia = to_eigen(body.getRotationalInertia().data);
}

}  // namespace

std::vector<MergedLink> merge_fixed_joints(const KDL::Chain& chain) {
  std::vector<MergedLink> links;
  KDL::Frame T_link_tip;  // from the current link, first the base, to the segment's end
  KDL::RigidBodyInertia body;
  for (const KDL::Segment& segment : chain.segments) {
    const KDL::Joint& joint = segment.getJoint();
    if (joint.getType() == KDL::Joint::None) {
      T_link_tip = T_link_tip * segment.getFrameToTip();
    } else {
      const KDL::Frame T_joint_link(with_z_along(joint.JointAxis()));
      const KDL::Frame at_zero = joint.pose(0.0);
      links.push_back(link_of(joint, T_link_tip * at_zero * T_joint_link));
      T_link_tip = T_joint_link.Inverse() * at_zero.Inverse() * segment.getFrameToTip();
      body = KDL::RigidBodyInertia::Zero();
    }
    if (!links.empty()) {
      body = body + T_link_tip * segment.getInertia();
      set_inertia(links.back(), body);
    }
  }
  return links;
}

}  // namespace kelvara::kinematics
