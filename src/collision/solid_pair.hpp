#pragma once

#include <Eigen/Geometry>

#include "collision/joint_travel.hpp"
#include "collision/link_frames.hpp"
#include "collision/scene.hpp"
#include "collision/separation.hpp"

namespace kelvara::collision {

/// Where the two solids of a pair are, with the chain at `frames`.
struct PlacedPair {
  PlacedPair(const SolidPair& pair, const Frames& frames);

  PlacedSolid near_solid, far_solid;
};

/// Signed distance and its direction, from the near solid to the far one.
Separation separation(const PlacedPair& pair);

/// Upper bound of the change of the pair's distance while the joints travel, m.
double change_of_distance(const SolidPair& pair, const JointArray& travel);

}  // namespace kelvara::collision
