#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "kelvara/motion/plan.hpp"

#include "collision/joint_travel.hpp"
#include "collision/scene.hpp"
#include "collision/start_contact.hpp"

namespace kelvara::collision {

/// Two solids at one instant of a plan.
struct Approach {
  std::size_t pair = 0;
  std::size_t interval = 0;  // between samples `interval` and `interval + 1`
  double part = 0.0;         // of the interval, 0 to 1
  double distance = 0.0;     // m, signed
};

/// Follows the distances of all pairs along one plan by conservative advancement: two solids whose
/// distance is known are measured again at the earliest time at which they can have come closer
/// than the limit, because the distance changes by at most the lever arms times the joints' travel.
class PlanScan {
 public:
  /// @param scene Must outlive the scan, as must the plan, which has samples.
  PlanScan(const Scene& scene, const Plan& plan);

  /// The first instant at which a pair is within its contact distance; of bodies that touch at the
  /// start of several samples the first at which they are deeper than there, or touch again after
  /// they have separated. Call once.
  std::optional<Approach> first_contact();
  /// The instant at which a pair is closest. Nothing when there is no pair.
  std::optional<Approach> closest();
  /// The smallest distance between the bodies of this contact from then on until they separate.
  double deepest(const Approach& contact);

  const SolidPair& pair(const Approach& approach) const { return pairs_[approach.pair]; }
  double time_s(const Approach& approach) const;
  /// Where the two are closest, base frame, m.
  Eigen::Vector3d point(const Approach& approach);

 private:
  /// What is known of a pair: a lower bound of its distance, and the direction of the last one.
  struct Bound {
    double distance = -1e9;  // m
    Eigen::Vector3d normal = Eigen::Vector3d::Zero();
  };

  void find_start_contacts();
  /// Null for a pair of bodies that does not touch at the start, or has separated since.
  const StartContact* start_contact_of(const SolidPair& pair) const;
  std::optional<Approach> first_contact_in(std::size_t interval);
  /// The first contact of one pair in an interval up to `until`, from its begin.
  std::optional<Approach> contact_of(Approach from, double until);
  /// The first instant in an interval at which a pair comes within `limit`, in steps of at least
  /// `resolution` (m). Searches from `from.part` to `until`.
  std::optional<Approach> approach(const Approach& from, double until, double limit,
                                   double resolution);
  /// Updates the bound of the pair so that it is exact or exceeds `enough`.
  void measure(const Approach& approach, double enough);
  const Frames& frames_at(const Approach& approach);

  const Scene& scene_;
  const Plan& plan_;
  std::vector<SolidPair> pairs_;
  std::vector<Bound> bounds_;
  std::vector<StartContact> start_contacts_;  // that have not separated
  std::vector<JointTravel> travels_;          // one for each interval
  Frames frames_;
  double frames_part_ = -1.0;  // where `frames_` is: interval + part
};

}  // namespace kelvara::collision
