#include "collision/plan_scan.hpp"

#include <algorithm>
#include <functional>
#include <limits>

namespace kelvara::collision {
namespace {

constexpr double kClearanceResolution = 5e-4;  // m

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
  find_start_contacts();
  for (std::size_t interval = 0; interval < travels_.size(); ++interval) {
    for (StartContact& contact : start_contacts_) {
      contact.advance(travels_[interval], [&](double part) -> const Frames& {
        return frames_at({0, interval, part});
      });
    }
    if (const std::optional<Approach> contact = first_contact_in(interval)) {
      return contact;
    }
    start_contacts_.erase(std::remove_if(start_contacts_.begin(), start_contacts_.end(),
                                         std::mem_fn(&StartContact::has_separated)),
                          start_contacts_.end());
  }
  return std::nullopt;
}

void PlanScan::find_start_contacts() {
  constexpr Approach kStart;
  if (plan_.samples().size() < 2) {
    return;  // one configuration, from which nothing moves away
  }
  for (std::size_t i = 0; i < pairs_.size(); ++i) {
    if (start_contact_of(pairs_[i]) == nullptr &&
        approach({i}, 0.0, pairs_[i].contact_distance, kContactResolution)) {
      start_contacts_.emplace_back(pairs_[i], pairs_, frames_at(kStart));
    }
  }
}

const StartContact* PlanScan::start_contact_of(const SolidPair& pair) const {
  const auto contact =
      std::find_if(start_contacts_.begin(), start_contacts_.end(),
                   [&pair](const StartContact& start) { return start.is_of(pair); });
  return contact == start_contacts_.end() ? nullptr : &*contact;
}

std::optional<Approach> PlanScan::first_contact_in(std::size_t interval) {
  std::optional<Approach> first;
  for (std::size_t i = 0; i < pairs_.size(); ++i) {
    const std::optional<Approach> found = contact_of({i, interval}, first ? first->part : 1.0);
    if (found && (!first || precedes(*found, *first))) {
      first = found;
    }
  }
  return first;
}

std::optional<Approach> PlanScan::contact_of(Approach from, double until) {
  double separated = 0.0;
  if (const StartContact* start = start_contact_of(pair(from))) {
    separated = start->separated_at();
    const auto deeper =
        approach(from, std::min(until, separated), start->limit(), kContactResolution);
    if (deeper || separated >= until) {
      return deeper;
    }
  }
  from.part = separated;
  return approach(from, until, pair(from).contact_distance, kContactResolution);
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
        distance = std::min(distance, separation(PlacedPair(other, frames)).distance);
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
  const PlacedPair touching(pair(approach), frames_at(approach));
  return contact_point(touching.near_solid, touching.far_solid, separation(touching));
}

std::optional<Approach> PlanScan::approach(const Approach& from, double until, double limit,
                                           double resolution) {
  Bound& bound = bounds_[from.pair];
  const double whole = change_of_distance(pair(from), travels_[from.interval].whole);
  if (from.part == 0.0 && bound.distance - whole > limit) {
    bound.distance -= whole;
    return std::nullopt;
  }
  const double rate = change_of_distance(pair(from), travels_[from.interval].rate);
  Approach at = from;
  while (true) {
    const double rest = rate * (until - at.part);
    // In an overlap a search is much slower than a short step along the last direction.
    measure(at, limit + (limit < 0.0 ? 0.5 * resolution : rest));
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
  const PlacedPair solids(pair(approach), frames_at(approach));
  Bound& bound = bounds_[approach.pair];
  if (!bound.normal.isZero()) {
    bound.distance = gap(solids.near_solid, solids.far_solid, bound.normal);
    if (bound.distance > enough) {
      return;
    }
  }
  // A search can miss the best direction of a deep overlap, which may be the last one.
  const Separation measured = separation(solids);
  if (bound.normal.isZero() || measured.distance > bound.distance) {
    bound = {measured.distance, measured.normal};
  }
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
