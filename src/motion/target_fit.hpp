#pragma once

#include <cstddef>

#include "motion/follow.hpp"
#include "motion/joint_profile.hpp"

namespace kelvara::motion {

/// The parabola in time through the latest targets of a stream, by least squares: of the last three
/// targets, or of all in the last 50 ms. It averages the noise of fast streams.
class TargetFit {
 public:
  /// @param stream With at least one target; outlives the fit.
  explicit TargetFit(const Follow& stream);

  /// Where the stream leads a joint at a time of its own. Bridges up to one period behind the last
  /// target; later, and before the first one, it stands still.
  /// @param limits What a joint can follow. What is beyond them is a jump of the targets: the state
  ///               contains the less of it the larger it is.
  JointState at(double time_s, std::size_t joint, const RateLimits& limits) const;
  /// The median time between the targets.
  double period_s() const { return period_s_; }

 private:
  /// The speed in the direction of `dq` from which the acceleration limit leads to every velocity
  /// between two targets: a jump between two of them is no motion.
  double steady_speed(double time_s, std::size_t joint, double dq, double a_max) const;
  /// The orthogonal polynomial of the second degree.
  double square(double u) const { return u * (u - skew_) - variance_; }

  const Follow& stream_;
  std::size_t first_;  // of the targets
  double period_s_;
  double mean_s_ = 0.0;    // of their times
  double variance_ = 0.0;  // likewise, s²
  double skew_ = 0.0;      // third moment by the second, s
  double norm_ = 0.0;      // sum of the squares of `square`
};

}  // namespace kelvara::motion
