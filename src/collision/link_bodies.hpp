#pragma once

#include <string>
#include <utility>
#include <vector>

#include "collision/link_frames.hpp"

class RobotKinematics;

namespace kelvara::collision {

struct Body;

/// The links of the model's chain, base first, those without collision solids left out.
/// @param places Of the link behind each joint of the chain.
/// @throws std::runtime_error for a URDF file that cannot be used.
std::vector<Body> link_bodies(const RobotKinematics& model,
                              const std::vector<LinkFrames::Place>& places);

/// The pairs of links that touch by design: on both sides of one joint, and those that touch in
/// every one of the sampled configurations.
std::vector<std::pair<std::string, std::string>> lasting_contacts(const RobotKinematics& model,
                                                                  const LinkFrames& frames,
                                                                  const std::vector<Body>& links);

}  // namespace kelvara::collision
