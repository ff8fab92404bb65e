#include "kelvara/kinematics/kinematics.hpp"

#include <cstdio>

#include <kdl/chainfksolverpos_recursive.hpp>
#include <kdl/chainiksolverpos_lma.hpp>

#include "kinematics/dynamics.hpp"
#include "kinematics/kinematics_config.hpp"
#include "kinematics/urdf_chain.hpp"

RobotKinematics::RobotKinematics() {
  const kelvara::kinematics::KinematicsConfig config =
      kelvara::kinematics::load_kinematics_config();
  tool_xyz_ = config.tool_xyz;
  tool_rpy_ = config.tool_rpy;

  const kelvara::kinematics::UrdfDescription urdf =
      kelvara::kinematics::load_urdf(kelvara::algorithms::resolve_robot_urdf_path());
  for (const kelvara::kinematics::UrdfJoint& joint : urdf.joints) {
    joints_.push_back({joint.name, joint.origin_xyz, joint.origin_rpy, joint.axis});
    joint_lower_.push_back(joint.lower);
    joint_upper_.push_back(joint.upper);
    joint_has_limits_.push_back(joint.has_limits);
  }
  build_screw_axes();
  n_ = screw_axes_.size();

  chain_ = kelvara::kinematics::build_kdl_chain(urdf, config);
  num_joints_ = static_cast<int>(chain_.getNrOfJoints());
  std::printf("urdf num_joints_: %d\n", num_joints_);
  create_solvers();
}

RobotKinematics::~RobotKinematics() = default;
