#pragma once

#include <array>
#include <string>
#include <unordered_map>
#include <vector>

namespace kelvara::description {

using Triple = std::array<double, 3>;

/// One joint of the URDF chain.
struct UrdfJoint {
  std::string name;
  std::string type;
  std::string parent;
  std::string child;
  Triple origin_xyz{};               // m
  Triple origin_rpy{};               // rad
  Triple axis{0.0, 0.0, 1.0};        // unit; z by default, where URDF itself has x
  bool has_limits = false;           // both limits were read, and some angle can violate them
  double lower = 0.0;                // rad; m for a prismatic joint
  double upper = 0.0;                // the same
  std::vector<std::string> reports;  // one line per limit that is there but not numeric
};

/// The mass properties of one link.
struct UrdfInertial {
  double mass = 0.0;    // kg
  Triple origin_xyz{};  // centre of mass in the link frame, m
  Triple origin_rpy{};  // orientation of the inertia frame, rad
  // ixx, ixy, ixz, iyy, iyz, izz in kg·m², about the centre of mass
  double ixx = 0.0, ixy = 0.0, ixz = 0.0, iyy = 0.0, iyz = 0.0, izz = 0.0;
};

/// The part of a URDF file that the model is built from.
struct UrdfDescription {
  std::vector<UrdfJoint> joints;  // the serial chain, root outward, fixed joints included
  std::unordered_map<std::string, UrdfInertial> inertials;  // by link name
};

/// Reads a URDF file.
/// @throws std::runtime_error for a file that cannot be loaded or is malformed, and for joints that
///         do not form one serial chain.
UrdfDescription load_urdf(const std::string& path);

}  // namespace kelvara::description
