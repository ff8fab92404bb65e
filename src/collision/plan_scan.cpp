#include "collision/plan_scan.hpp"

#include <algorithm>
#include <limits>
#include <numeric>

#include "collision/separation.hpp"

namespace kelvara::collision {
namespace {

constexpr double kContactResolution = 1e-4;    // m
constexpr double kClearanceResolution = 5e-4;  // m

/// Bound of the change of a distance, m.
double change(const SolidPair& pair, const JointArray& travel) {
  return std::inner_product(travel.begin(), travel.end(), pair.lever_arms.begin(), 0.0);
}

PlacedSolid placed(const Body& body, const Solid& solid, const Frames& frames) {
  return {solid, frames[body.frame] * solid.pose};
}

Separation separation_of(const SolidPair& pair, const Frames& frames) {
  return separation(placed(*pair.near_body, *pair.near_solid, frames),
                    placed(*pair.far_body, *pair.far_solid, frames));
}

/// Earlier, or at the same time deeper.
bool precedes(const Approach& one, const Approach& other) {
  return one.part < other.part || (one.part == other.part && one.distance < other.distance);
}

}  // namespace

PlanScan::PlanScan(const Scene& scene, const Plan& plan)
    : scene_(scene), plan_(plan), pairs_(scene.pairs()), bounds_(pairs_.size()) {
  const std::vector<PlanSample>& samples = plan.samples();
  for (std::size_t i = 0; i + 1 < samples.size(); ++i) {
    travels_.push_back(travel_between(samples[i], samples[i + 1],
                                      plan.sample_time_s(i + 1) - plan.sample_time_s(i)));
  }
  if (travels_.empty()) {
    travels_.emplace_back();
  }
}

std::optional<Approach> PlanScan::first_contact() {
  for (std::size_t interval = 0; interval < travels_.size(); ++interval) {
    if (const std::optional<Approach> contact = first_contact_in(interval)) {
      return contact;
    }
  }
  return std::nullopt;
}

std::optional<Approach> PlanScan::first_contact_in(std::size_t interval) {
  std::optional<Approach> first;
  for (std::size_t i = 0; i < pairs_.size(); ++i) {
    const std::optional<Approach> found = approach({i, interval}, first ? first->part : 1.0,
                                                   pairs_[i].contact_distance, kContactResolution);
    if (found && (!first || precedes(*found, *first))) {
      first = found;
    }
  }
  return first;
}

std::optional<Approach> PlanScan::closest() {
  std::optional<Approach> best;
  double limit = std::numeric_limits<double>::infinity();
  for (std::size_t interval = 0; interval < travels_.size(); ++interval) {
    for (std::size_t i = 0; i < pairs_.size(); ++i) {
      Approach from{i, interval};
      while (const auto closer = approach(from, 1.0, limit, kClearanceResolution)) {
        best = from = *closer;
        limit = best->distance - kClearanceResolution;
      }
    }
  }
  return best;
}

double PlanScan::deepest(const Approach& contact) {
  const SolidPair& touching = pair(contact);
  double smallest = contact.distance;
  for (std::size_t sample = contact.interval + 1; sample < plan_.samples().size(); ++sample) {
    const Frames frames = scene_.frames().at(plan_.samples()[sample].q);
    double distance = std::numeric_limits<double>::infinity();
    for (const SolidPair& other : pairs_) {
      if (other.near_body == touching.near_body && other.far_body == touching.far_body) {
        distance = std::min(distance, separation_of(other, frames).distance);
      }
    }
    if (distance > touching.contact_distance) {
      break;
    }
    smallest = std::min(smallest, distance);
  }
  return smallest;
}

double PlanScan::time_s(const Approach& approach) const {
  const double begin = plan_.sample_time_s(approach.interval);
  return begin + approach.part * (plan_.sample_time_s(approach.interval + 1) - begin);
}

Eigen::Vector3d PlanScan::point(const Approach& approach) {
  const Frames& frames = frames_at(approach);
  const SolidPair& touching = pair(approach);
  return contact_point(placed(*touching.near_body, *touching.near_solid, frames),
                       placed(*touching.far_body, *touching.far_solid, frames),
                       separation_of(touching, frames));
}

std::optional<Approach> PlanScan::approach(const Approach& from, double until, double limit,
                                           double resolution) {
  Bound& bound = bounds_[from.pair];
  const double whole = change(pair(from), travels_[from.interval].whole);
  if (from.part == 0.0 && bound.distance - whole > limit) {
    bound.distance -= whole;
    return std::nullopt;
  }
  const double rate = change(pair(from), travels_[from.interval].rate);
  Approach at = from;
  while (true) {
    const double rest = rate * (until - at.part);
    measure(at, limit + rest);
    if (bound.distance <= limit) {
      at.distance = bound.distance;
      return at;
    }
    if (bound.distance - rest > limit || at.part >= until) {
      bound.distance -= rest;
      return std::nullopt;
    }
    at.part = std::min(until, at.part + std::max(bound.distance - limit, resolution) / rate);
  }
}

void PlanScan::measure(const Approach& approach, double enough) {
  const Frames& frames = frames_at(approach);
  const SolidPair& solids = pair(approach);
  Bound& bound = bounds_[approach.pair];
  const PlacedSolid a = placed(*solids.near_body, *solids.near_solid, frames);
  const PlacedSolid b = placed(*solids.far_body, *solids.far_solid, frames);
  if (!bound.normal.isZero()) {
    bound.distance = gap(a, b, bound.normal);
    if (bound.distance > enough) {
      return;
    }
  }
  const Separation measured = separation(a, b);
  bound = {measured.distance, measured.normal};
}

const Frames& PlanScan::frames_at(const Approach& approach) {
  const double part = static_cast<double>(approach.interval) + approach.part;
  if (part != frames_part_) {
    const std::vector<PlanSample>& samples = plan_.samples();
    const bool on_sample = approach.part == 0.0 || approach.part == 1.0;
    const std::size_t sample = approach.interval + (approach.part == 1.0 ? 1 : 0);
    frames_ = scene_.frames().at(on_sample ? samples[std::min(sample, samples.size() - 1)].q
                                           : plan_.at(time_s(approach)).q);
    frames_part_ = part;
  }
  return frames_;
}

}  // namespace kelvara::collision
