#include "motion/plan_clock.hpp"

#include <algorithm>
#include <cmath>

#include "description/timing.hpp"

namespace kelvara::motion {
namespace {

using description::kControlPeriodS;

// For a plan that stands still, where the joints set no bound.
constexpr double kMaxRateRate = 20.0;    // 1/s
constexpr double kMaxRateJerk = 2000.0;  // 1/s²
// Slower than this a joint does not bound the rate.
constexpr double kStillRadPerS = 1e-6;
// Of the joints' jerk: what the approach to the target rate uses.
constexpr double kApproachShare = 0.5;

struct Range {
  double low = -kMaxRateRate;
  double high = kMaxRateRate;
};

/// The rates of the rate that keep one joint's acceleration and jerk.
Range range_of(double before_ddq, double plan_dq, double plan_ddq, double rate, double a_max,
               double j_max) {
  const double step = j_max * kControlPeriodS;
  const double low = std::max(-a_max, before_ddq - step);
  const double high = std::max(low, std::min(a_max, before_ddq + step));
  const double inertial = rate * rate * plan_ddq;
  const double first = (low - inertial) / plan_dq;
  const double second = (high - inertial) / plan_dq;
  return {std::min(first, second), std::max(first, second)};
}

/// Approaches the target rate so that it is reached without a jerk above the joints' share.
double approach(double error, double rate_jerk) {
  const double speed =
      std::min(std::sqrt(2.0 * rate_jerk * std::abs(error)), std::abs(error) / kControlPeriodS);
  return std::copysign(speed, error);
}

double step_rate(const PlanClock& before, const Plan& plan, const RateLimits& limits,
                 double target) {
  const PlanSample from = plan.at(before.time_s);
  const PlanSample to = plan.at(before.time_s + before.rate * kControlPeriodS);
  Range range;
  double rate_jerk = kMaxRateJerk;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    if (std::abs(to.dq[i]) < kStillRadPerS) {
      continue;
    }
    const double ddq = before.rate * before.rate * from.ddq[i] + before.rate_rate * from.dq[i];
    const Range joint =
        range_of(ddq, to.dq[i], to.ddq[i], before.rate, limits.acceleration[i], limits.jerk[i]);
    range.low = std::max(range.low, joint.low);
    range.high = std::min(range.high, joint.high);
    rate_jerk = std::min(rate_jerk, kApproachShare * limits.jerk[i] / std::abs(to.dq[i]));
  }
  if (range.low > range.high) {
    return 0.5 * (range.low + range.high);  // the joints disagree: the least violation
  }
  return std::clamp(approach(target - before.rate, rate_jerk), range.low, range.high);
}

}  // namespace

PlanClock step_clock(const PlanClock& before, const Plan& plan, const RateLimits& limits,
                     double target) {
  PlanClock clock = before;
  if (before.rate != target || before.rate_rate != 0.0) {
    clock.rate_rate = step_rate(before, plan, limits, target);
    clock.rate = std::clamp(before.rate + clock.rate_rate * kControlPeriodS, 0.0, 1.0);
    if (std::abs(clock.rate - target) < 1e-9) {
      clock.rate = target;
      clock.rate_rate = 0.0;
    }
  }
  clock.time_s += 0.5 * (before.rate + clock.rate) * kControlPeriodS;
  return clock;
}

}  // namespace kelvara::motion
