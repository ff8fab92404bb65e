#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulation/simulated_arm/robot_description.hpp"

namespace kelvara::simulation {

inline constexpr double kDefaultFriction = 0.8;

/// A horizontal plane without edges.
struct Table {
  double height = 0.0;  // m, in the base frame
  double friction = kDefaultFriction;
};

struct Body {
  std::string name;
  Solid solid;        // its origin is the body's place at the start, in the base frame
  double mass = 0.0;  // kg; 0: the body is fixed
  double friction = kDefaultFriction;
  int line = 0;  // in the scene file
};

/// What stands around the arm.
struct Scene {
  std::string path;  // of its file
  std::optional<Table> table;
  std::vector<Body> bodies;
};

/// Reads a scene file; docs/simulation.md describes the format.
/// @throws std::runtime_error with the path, the line, the key and the reason.
Scene load_scene(const std::string& path);

}  // namespace kelvara::simulation
