#pragma once

#include <functional>
#include <limits>
#include <vector>

#include "collision/solid_pair.hpp"

namespace kelvara::collision {

constexpr double kContactResolution = 1e-4;  // m; a shallower overlap may be missed

/// Two bodies that touch where a plan starts, until they have separated. So long the plan may keep
/// them in contact, but not press them deeper.
class StartContact {
 public:
  using FramesAt = std::function<const Frames&(double part)>;  // of an interval, 0 to 1

  /// @param touching A pair of solids of the two bodies.
  /// @param pairs    All pairs that are checked; they outlive this.
  /// @param start    The chain where the plan starts.
  StartContact(const SolidPair& touching, const std::vector<SolidPair>& pairs, const Frames& start);

  bool is_of(const SolidPair& pair) const;
  /// The distance to keep until the bodies have separated, m: that at the start, less the
  /// resolution of the check.
  double limit() const { return limit_; }
  /// Follows the bodies through the next interval of the plan, the first one to begin with.
  void advance(const JointTravel& travel, const FramesAt& frames_at);
  bool has_separated() const { return separated_at_ <= 1.0; }
  /// The part of that interval at which the bodies have separated; infinite when they have not.
  double separated_at() const { return separated_at_; }

 private:
  /// The largest change of the bodies' distance, m.
  double change(const JointArray& travel) const;
  double measure(const Frames& frames) const;

  std::vector<const SolidPair*> pairs_;  // of these bodies
  double apart_;                         // m; beyond it the bodies have separated
  double distance_;                      // m; an upper bound
  double limit_;
  double separated_at_ = std::numeric_limits<double>::infinity();
};

}  // namespace kelvara::collision
