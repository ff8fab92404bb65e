#include "motion/target_fit.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "description/timing.hpp"
#include "motion/goal_tracking.hpp"
#include "motion/target_parabola.hpp"

namespace kelvara::motion {
namespace {

constexpr double kMaxPeriodS = 0.06;
constexpr double kMinBridgeS = 0.01;
// Of the acceleration limit; the rest is for the approach.
constexpr double kAccelerationShare = 0.9;

// The window of exact targets, and the longest one of noisy targets.
constexpr std::size_t kLeastTargets = 3;
constexpr double kWindowS = 0.05;
constexpr double kLongestWindowS = 0.235;
// Of the jerk limit, for the noise's standard deviation.
constexpr double kNoiseShare = 0.25;
constexpr double kSlowestPole = 15.0;  // 1/s
constexpr double kPoleStep = 0.9;

// The targets that have to confirm the motion, and how much their residuals count against it.
constexpr std::size_t kWitnesses = 6;
constexpr double kWitnessS = 0.15;
constexpr double kDoubt = 40.0;
constexpr double kDoubtExponent = 0.75;
constexpr std::size_t kParabolaFreedom = 3;

/// A rate that a joint can follow; beyond the limit the smaller the larger it is.
double feasible(double rate, double limit) {
  return std::abs(rate) <= limit ? rate : limit * limit / rate;
}

double median_period_s(const Follow& stream) {
  if (stream.count < 2) {
    return kMaxPeriodS;
  }
  std::array<double, Follow::kHistory> periods{};
  const std::size_t first = Follow::kHistory - stream.count;
  for (std::size_t k = first + 1; k < Follow::kHistory; ++k) {
    periods[k] = stream.targets[k].time_s - stream.targets[k - 1].time_s;
  }
  auto* const middle = periods.begin() + first + 1 + (stream.count - 1) / 2;
  std::nth_element(periods.begin() + first + 1, middle, periods.end());
  return std::clamp(*middle, description::kControlPeriodS, kMaxPeriodS);
}

/// The share of a motion that its targets confirm: 1 where the parabola explains them, near 0 for
/// noise at rest and for a jump. Few targets confirm nothing.
double confirmed_share(const TargetParabola& parabola) {
  if (parabola.count() <= kParabolaFreedom + 1 || !(parabola.explained() > 0.0)) {
    return 0.0;
  }
  const auto freedom = static_cast<double>(parabola.count() - kParabolaFreedom);
  const double doubt = kDoubt * parabola.residual() / std::pow(freedom, kDoubtExponent);
  return parabola.explained() / (parabola.explained() + doubt);
}

}  // namespace

TargetFit::TargetFit(const Follow& stream)
    : stream_(stream),
      oldest_(Follow::kHistory - stream.count),
      period_s_(median_period_s(stream)),
      noise_(stream, period_s_) {}

StreamGoal TargetFit::at(double time_s, std::size_t joint, const RateLimits& limits) const {
  const auto [first, pole] = smoothing(joint, limits.jerk);
  TargetParabola path(stream_, first, joint);
  path.set_acceleration(feasible(path.acceleration(), kAccelerationShare * limits.acceleration));
  const TargetParabola witness(stream_, std::min(first, first_of(kWitnesses, kWitnessS)), joint);
  const double share = confirmed_share(witness);

  const double last_s = stream_.targets.back().time_s;
  const double t =
      std::clamp(time_s, stream_.targets[first].time_s, last_s + std::max(period_s_, kMinBridgeS));
  const double known_s = std::min(t, last_s);
  const double reach = limits.velocity * (t - known_s);
  const double bridged = std::clamp(path.position(t) - path.position(known_s), -reach, reach);
  const double q = share * (path.position(known_s) + bridged) + (1.0 - share) * witness.mean();
  if (t != time_s) {
    return {{q, 0.0, 0.0}, pole};
  }
  const double dq = std::clamp(path.velocity(t), -limits.velocity, limits.velocity);
  return {{q, share * dq, share * path.acceleration()}, pole};
}

TargetFit::Smoothing TargetFit::smoothing(std::size_t joint, double jerk) const {
  const double deviation = noise_.deviation(joint);
  const double allowed = kNoiseShare * jerk;
  Smoothing least{first_of(kLeastTargets, kWindowS), fastest_pole(jerk)};
  while (least.first > oldest_ && age_s(least.first - 1) <= kLongestWindowS &&
         noise_jerk(deviation, least) > allowed) {
    --least.first;
  }
  while (least.pole > kSlowestPole && noise_jerk(deviation, least) > allowed) {
    least.pole *= kPoleStep;
  }
  return least;
}

double TargetFit::noise_jerk(double deviation, const Smoothing& smoothing) const {
  // The deviations of position, velocity and acceleration at the end of a parabola through many
  // even targets are 3, sqrt(192) / window and sqrt(720) / window² times that of their mean; the
  // law multiplies them by p³, 3 p² and 3 p.
  const double p = smoothing.pole;
  const double per_window = 1.0 / age_s(smoothing.first);
  const auto count = static_cast<double>(Follow::kHistory - smoothing.first);
  return deviation / std::sqrt(count) * 3.0 * p *
         (p * p + std::sqrt(192.0) * p * per_window + std::sqrt(720.0) * per_window * per_window);
}

std::size_t TargetFit::first_of(std::size_t count, double window_s) const {
  std::size_t first = Follow::kHistory - std::min(stream_.count, count);
  while (first > oldest_ && age_s(first - 1) <= window_s) {
    --first;
  }
  return first;
}

}  // namespace kelvara::motion
