#include "collision/solid_pair.hpp"

#include <numeric>

namespace kelvara::collision {
namespace {

PlacedSolid placed(const Body& body, const Solid& solid, const Frames& frames) {
  return {solid, frames[body.frame] * solid.pose};
}

}  // namespace

PlacedPair::PlacedPair(const SolidPair& pair, const Frames& frames)
    : near_solid(placed(*pair.near_body, *pair.near_solid, frames)),
      far_solid(placed(*pair.far_body, *pair.far_solid, frames)) {}

Separation separation(const PlacedPair& pair) {
  return separation(pair.near_solid, pair.far_solid);
}

double change_of_distance(const SolidPair& pair, const JointArray& travel) {
  return std::inner_product(travel.begin(), travel.end(), pair.lever_arms.begin(), 0.0);
}

}  // namespace kelvara::collision
