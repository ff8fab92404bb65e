#pragma once

#include <cstddef>

#include "motion/follow.hpp"
#include "motion/joint_profile.hpp"
#include "motion/target_noise.hpp"

namespace kelvara::motion {

/// Where a stream leads a joint.
struct StreamGoal {
  JointState state;
  double pole = 0.0;  // of the linear law near the goal, 1/s
};

/// The parabola in time through the latest targets of a stream, by least squares: of the last three
/// targets, or of all in the last 50 ms. The more noise the targets have, the longer that window
/// and the slower the poles, so that the noise asks for no more than a part of the jerk limit.
class TargetFit {
 public:
  /// @param stream With at least one target; outlives the fit.
  explicit TargetFit(const Follow& stream);

  /// Where the stream leads a joint at a time of its own. Bridges up to one period behind the last
  /// target; later, and before the first one, it stands still. Where the parabola does not describe
  /// the targets of the last 150 ms, as after a jump, the goal is more their mean than a motion.
  /// @param limits What a joint can follow, positive. An acceleration beyond them counts the less
  ///               the larger it is.
  StreamGoal at(double time_s, std::size_t joint, const RateLimits& limits) const;
  /// The median time between the targets.
  double period_s() const { return period_s_; }

 private:
  /// How much noise is averaged.
  struct Smoothing {
    std::size_t first;  // of the targets in the window
    double pole;        // 1/s
  };

  Smoothing smoothing(std::size_t joint, double jerk) const;
  /// The jerk that noise of this standard deviation makes the linear law ask for, rad/s³.
  double noise_jerk(double deviation, const Smoothing& smoothing) const;
  /// The first of the last `count` targets, or of more within `window_s`.
  std::size_t first_of(std::size_t count, double window_s) const;
  /// From a target to the last one.
  double age_s(std::size_t target) const {
    return stream_.targets.back().time_s - stream_.targets[target].time_s;
  }

  const Follow& stream_;
  std::size_t oldest_;  // of the targets
  double period_s_;
  TargetNoise noise_;
};

}  // namespace kelvara::motion
