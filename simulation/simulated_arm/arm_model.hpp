#pragma once

#include <string>

#include "simulation/simulated_arm/robot_description.hpp"
#include "simulation/simulated_arm/scene.hpp"

namespace kelvara::simulation {

/// What makes the arm collide: the scene, and whether the jaws move in it.
struct Contacts {
  Scene scene;
  bool moving_jaws = true;  // false: the fingers stay where the URDF draws them
};

// Names in the model. The scene's bodies have this prefix.
inline constexpr char kBodyPrefix[] = "body:";
inline constexpr char kLeftJawName[] = "left jaw";  // a body and its joint
inline constexpr char kRightJawName[] = "right jaw";

/// The arm in MuJoCo's own format. Degrees of freedom: the joints, the left and the right jaw if
/// they move, the scene's free bodies.
/// @param load_kg  A point mass held at the tool frame, beyond the payload.
/// @param contacts nullptr: nothing collides, and there are no jaws.
/// @throws std::runtime_error when contacts need shapes or fingers that the URDF lacks.
std::string arm_model(const RobotDescription& description, double load_kg,
                      const Contacts* contacts);

}  // namespace kelvara::simulation
