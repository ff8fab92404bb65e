#pragma once

#include <cstddef>

#include "motion/follow.hpp"

namespace kelvara::motion {

/// The parabola in time through the latest targets of one joint, by least squares.
class TargetParabola {
 public:
  /// Through the targets of a stream from the index `first` on, at least one.
  TargetParabola(const Follow& stream, std::size_t first, std::size_t joint);

  std::size_t count() const { return count_; }
  double mean() const { return origin_ + mean_; }  // of the targets, rad
  double position(double time_s) const {
    const double u = time_s - mean_s_;
    return mean() + slope_ * u + bend_ * square(u);
  }
  double velocity(double time_s) const {
    return slope_ + bend_ * (2.0 * (time_s - mean_s_) - skew_);
  }
  double acceleration() const { return 2.0 * bend_; }
  void set_acceleration(double ddq) { bend_ = 0.5 * ddq; }

  /// The sums of the squares of what the parabola explains of the targets' distance from their
  /// mean, and of the residuals, rad².
  double explained() const { return explained_; }
  double residual() const { return residual_; }

 private:
  void fit(const Follow& stream, std::size_t joint);
  /// The orthogonal polynomial of the second degree.
  double square(double u) const { return u * (u - skew_) - variance_; }

  std::size_t count_;
  double origin_;           // the last target: what is computed stays small beside it, rad
  double mean_s_ = 0.0;     // of the times
  double variance_ = 0.0;   // likewise, s²
  double skew_ = 0.0;       // third moment by the second, s
  double mean_ = 0.0;       // rad
  double slope_ = 0.0;      // rad/s
  double bend_ = 0.0;       // rad/s²
  double explained_ = 0.0;  // rad²
  double residual_ = 0.0;   // rad²
};

}  // namespace kelvara::motion
