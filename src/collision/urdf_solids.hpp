#pragma once

#include <map>
#include <string>
#include <vector>

#include "collision/solid.hpp"

namespace kelvara::collision {

/// The part of a URDF file that the model does not keep.
struct UrdfSolids {
  std::map<std::string, std::vector<Solid>> links;  // by link name; `pose` in the link frame
  std::map<std::string, std::string> parents;       // by joint name
  std::map<std::string, std::string> children;      // the same
};

/// Reads the collision solids: boxes, cylinders and spheres.
/// @throws std::runtime_error for a file that cannot be loaded or is malformed, and for any other
///         shape, meshes included.
UrdfSolids load_urdf_solids(const std::string& path);

}  // namespace kelvara::collision
