#include "collision/start_contact.hpp"

#include <algorithm>

namespace kelvara::collision {
namespace {

bool have_same_bodies(const SolidPair& one, const SolidPair& other) {
  return one.near_body == other.near_body && one.far_body == other.far_body;
}

std::vector<const SolidPair*> pairs_like(const SolidPair& touching,
                                         const std::vector<SolidPair>& pairs) {
  std::vector<const SolidPair*> like;
  for (const SolidPair& pair : pairs) {
    if (have_same_bodies(pair, touching)) {
      like.push_back(&pair);
    }
  }
  return like;
}

}  // namespace

StartContact::StartContact(const SolidPair& touching, const std::vector<SolidPair>& pairs,
                           const Frames& start)
    : pairs_(pairs_like(touching, pairs)),
      apart_(touching.contact_distance + kContactResolution),
      distance_(measure(start)),
      limit_(distance_ - kContactResolution) {}

bool StartContact::is_of(const SolidPair& pair) const {
  return have_same_bodies(*pairs_.front(), pair);
}

void StartContact::advance(const JointTravel& travel, const FramesAt& frames_at) {
  const double whole = change(travel.whole);
  if (distance_ + whole <= apart_) {
    distance_ += whole;
    return;
  }
  const double rate = change(travel.rate);
  double part = 0.0;
  distance_ = measure(frames_at(part));
  while (distance_ <= apart_ && distance_ + rate * (1.0 - part) > apart_) {
    part = std::min(1.0, part + std::max(apart_ - distance_, kContactResolution) / rate);
    distance_ = measure(frames_at(part));
  }
  if (distance_ > apart_) {
    separated_at_ = part;
  }
  distance_ += rate * (1.0 - part);
}

double StartContact::change(const JointArray& travel) const {
  double largest = 0.0;
  for (const SolidPair* pair : pairs_) {
    largest = std::max(largest, change_of_distance(*pair, travel));
  }
  return largest;
}

double StartContact::measure(const Frames& frames) const {
  double smallest = std::numeric_limits<double>::infinity();
  for (const SolidPair* pair : pairs_) {
    smallest = std::min(smallest, separation(PlacedPair(*pair, frames)).distance);
  }
  return smallest;
}

}  // namespace kelvara::collision
