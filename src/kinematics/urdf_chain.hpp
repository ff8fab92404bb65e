#pragma once

#include <array>
#include <string>
#include <unordered_map>
#include <vector>

#include <kdl/chain.hpp>
#include <kdl/rigidbodyinertia.hpp>

namespace tinyxml2 {
class XMLElement;
}

namespace kelvara::kinematics {

struct KinematicsConfig;

using Triple = std::array<double, 3>;

/// One joint of the URDF chain.
struct UrdfJoint {
  std::string name;
  std::string type;
  std::string parent;
  std::string child;
  Triple origin_xyz{};         // m
  Triple origin_rpy{};         // rad
  Triple axis{0.0, 0.0, 1.0};  // unit; joints of this arm turn about z unless they say otherwise
  bool has_limits = false;     // both limits were read
  double lower = 0.0;
  double upper = 0.0;
};

/// The mass properties of one link.
struct UrdfInertial {
  double mass = 0.0;    // kg
  Triple origin_xyz{};  // centre of mass in the link frame, m
  Triple origin_rpy{};  // orientation of the inertia frame, rad
  // ixx, ixy, ixz, iyy, iyz, izz in kg·m², about the centre of mass
  double ixx = 0.0, ixy = 0.0, ixz = 0.0, iyy = 0.0, iyz = 0.0, izz = 0.0;
};

/// What the model needs of a URDF file.
struct UrdfDescription {
  std::vector<UrdfJoint> joints;  // the serial chain, root outward, fixed joints included
  std::unordered_map<std::string, UrdfInertial> inertials;  // by link name
};

/// Three numbers separated by white space; a null text is (0, 0, 0).
/// @throws std::runtime_error when it holds fewer than three numbers.
Triple parse_xyz_attr(const char* text);

/// Orders the joints of a <robot> element into one serial chain.
/// @throws std::runtime_error for malformed joints, branches, cycles, or no root.
std::vector<UrdfJoint> parse_joint_chain(const tinyxml2::XMLElement* robot);

/// Reads a URDF file.
/// @throws std::runtime_error for a file that cannot be loaded or is malformed.
UrdfDescription load_urdf(const std::string& path);

/// The inertia in the link frame; zero for a mass that is not positive.
KDL::RigidBodyInertia to_kdl_inertia(const UrdfInertial& inertial);

/// The chain with payload (if configured) and tool at its end.
/// @throws std::runtime_error for a joint type other than revolute, continuous, prismatic, fixed.
KDL::Chain build_kdl_chain(const UrdfDescription& urdf, const KinematicsConfig& config);

}  // namespace kelvara::kinematics
