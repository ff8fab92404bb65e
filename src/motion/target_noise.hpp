#pragma once

#include <array>
#include <cstddef>

#include "motion/follow.hpp"

namespace kelvara::motion {

/// Estimates the noise of a stream from the fifth differences of its targets. These contain hardly
/// anything of a motion (of a sine of 1 Hz at 20 targets per second less than 1/5000), but all of
/// the noise. They are divided differences, so that uneven stamps do not look like noise.
class TargetNoise {
 public:
  /// @param stream Outlives the estimate.
  /// @param period_s Of the stream.
  TargetNoise(const Follow& stream, double period_s);

  /// The standard deviation of one joint's targets, rad; 0 for less than six targets. It
  /// is computed from their upper quartile, which a single jump does not change.
  double deviation(std::size_t joint) const;

 private:
  static constexpr std::size_t kOrder = 5;
  using Weights = std::array<double, kOrder + 1>;  // of the targets, the latest first

  /// Those of the difference that ends at a target; white noise of 1 rad makes it 1 rad.
  Weights weights_at(std::size_t last, double period_s) const;

  const Follow& stream_;
  std::size_t first_;  // target at which a difference ends
  std::array<Weights, Follow::kHistory> weights_{};
};

}  // namespace kelvara::motion
