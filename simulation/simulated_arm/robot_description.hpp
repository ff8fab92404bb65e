#pragma once

#include <array>
#include <string>
#include <vector>

namespace kelvara::simulation {

using Triple = std::array<double, 3>;

struct Solid {
  enum class Shape { kBox, kSphere, kCylinder };
  Shape shape = Shape::kBox;
  Triple size{};    // m; box: edges; sphere: radius; cylinder: radius, length along z
  Triple origin{};  // m, of its centre
  Triple rpy{};     // rad
};

struct LinkDescription {
  double mass = 0.0;                // kg
  Triple com{};                     // m, in the link frame
  std::array<double, 6> inertia{};  // xx yy zz xy xz yz about the com, link axes, kg·m²
  std::vector<Solid> solids;        // collision shapes, in the link frame
  std::string solids_error;         // why a shape cannot be used; matters for contacts alone
};

struct JointDescription {
  std::string name;
  Triple origin{};  // m, in the parent link
  Triple rpy{};     // rad
  Triple axis{0, 0, 1};
  double lower = 0.0;     // rad
  double upper = 0.0;     // rad
  LinkDescription child;  // the link that the joint carries
};

/// What the physics needs of the URDF and the YAML file. The simulation reads both without the
/// library, so that comparing its dynamics with the library's model also checks the reading.
struct RobotDescription {
  LinkDescription base;                  // the link that the first joint starts from
  std::vector<JointDescription> joints;  // base first
  LinkDescription payload;               // a point mass on the last link; mass 0: no payload
  Triple tool{};                         // m, on the last link
  std::vector<double> motor_signs;       // motor angle = sign * joint angle
};

/// Reads both files; the URDF must list the joints in order, base first.
/// @param urdf_path, config_path When empty, the project's own file is used: from the folder
///        "config" beside the program's folder, otherwise from "config" in the current directory.
/// @throws std::runtime_error with the file and the reason.
RobotDescription load_robot_description(const std::string& urdf_path = "",
                                        const std::string& config_path = "");

}  // namespace kelvara::simulation
