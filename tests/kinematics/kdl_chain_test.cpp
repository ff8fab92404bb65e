#include "kinematics/kdl_chain.hpp"

#include <gtest/gtest.h>

#include "support/outcomes.hpp"

namespace kelvara::kinematics {
namespace {

using description::UrdfDescription;

UrdfDescription arm(const std::string& last_type) {
  UrdfDescription urdf;
  for (const std::string& type : {std::string("revolute"), std::string("continuous"), last_type}) {
    description::UrdfJoint joint;
    joint.name = "to " + type;
    joint.type = type;
    joint.child = type;
    urdf.joints.push_back(joint);
  }
  return urdf;
}

TEST(KdlChain, GivesAMovingJointTwoSegmentsAndAddsPayloadAndTool) {
  description::KinematicsConfig config;
  config.has_payload = true;
  const KDL::Chain chain = build_kdl_chain(arm("prismatic"), config);
  EXPECT_EQ(chain.getNrOfJoints(), 3U);
  EXPECT_EQ(chain.getNrOfSegments(), 8U);
}

TEST(KdlChain, RefusesATypeOfJointThatItCannotMove) {
  EXPECT_EQ(error_of([] { build_kdl_chain(arm("floating"), {}); }),
            "Unsupported URDF joint type: floating");
}

TEST(KdlChain, TurnsTheInertiaIntoTheLinkFrame) {
  description::UrdfInertial inertial;
  inertial.mass = 2.0;
  inertial.origin_xyz = {1, 2, 3};
  inertial.origin_rpy = {0, 0, 1.5707963267948966};
  inertial.ixx = 1.0;
  inertial.iyy = 2.0;
  inertial.izz = 3.0;
  const KDL::RigidBodyInertia inertia = to_kdl_inertia(inertial);
  EXPECT_EQ(inertia.getMass(), 2.0);
  // About the link's origin: the quarter turn exchanges x and y, Steiner adds m·(y² + z²).
  EXPECT_NEAR(inertia.getRotationalInertia().data[0], 2.0 + 2.0 * 13.0, 1e-12);
  EXPECT_NEAR(inertia.getRotationalInertia().data[4], 1.0 + 2.0 * 10.0, 1e-12);
}

}  // namespace
}  // namespace kelvara::kinematics
