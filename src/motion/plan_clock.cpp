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
constexpr double kApproachShare = 0.25;
// The plan's own jerk, and as much for the change of its rate.
constexpr double kJerkBudget = 2.0;

/// Bounds of the rate's derivative, 1/s.
struct Range {
  double low = -kMaxRateRate;
  double high = kMaxRateRate;

  bool is_empty() const { return low > high; }
  /// Keeps the joint's acceleration between two values.
  void narrow(double ddq_low, double ddq_high, double plan_dq, double inertial_ddq) {
    const double first = (ddq_low - inertial_ddq) / plan_dq;
    const double second = (ddq_high - inertial_ddq) / plan_dq;
    low = std::max(low, std::min(first, second));
    high = std::min(high, std::max(first, second));
  }
};

/// Approaches the target rate so that it is reached without a jerk above the joints' share.
double approach(double error, double rate_jerk) {
  const double speed =
      std::min(std::sqrt(2.0 * rate_jerk * std::abs(error)), std::abs(error) / kControlPeriodS);
  return std::copysign(speed, error);
}

/// The derivative of the rate for the coming cycle. Where the joints disagree, a smooth command
/// takes precedence over the limits of acceleration.
double step_rate(const PlanClock& before, const Plan& plan, const SmoothLimits& limits,
                 const JointArray& peak, const JointArray& ddq, double target) {
  const PlanSample to = plan_state(plan, before.time_s + before.rate * kControlPeriodS);
  Range acceleration, jerk;
  double rate_jerk = kMaxRateJerk;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double dq = std::abs(to.dq[i]);
    if (dq < kStillRadPerS) {
      continue;
    }
    const double inertial = before.rate * before.rate * to.ddq[i];
    const double step = kJerkBudget * limits.jerk[i] * kControlPeriodS;
    acceleration.narrow(-limits.acceleration[i], limits.acceleration[i], to.dq[i], inertial);
    jerk.narrow(ddq[i] - step, ddq[i] + step, to.dq[i], inertial);
    rate_jerk = std::min(rate_jerk, kApproachShare * limits.jerk[i] / std::max(dq, peak[i]));
  }
  const double wanted = approach(target - before.rate, rate_jerk);
  const double allowed = acceleration.is_empty()
                             ? before.rate_rate
                             : std::clamp(wanted, acceleration.low, acceleration.high);
  return jerk.is_empty() ? before.rate_rate : std::clamp(allowed, jerk.low, jerk.high);
}

}  // namespace

PlanSample plan_state(const Plan& plan, double time_s) {
  if (time_s >= 0.0) {
    return plan.at(time_s);
  }
  PlanSample state = plan.samples().front();
  for (std::size_t i = 0; i < kJointCount; ++i) {
    state.q[i] += time_s * (state.dq[i] + 0.5 * time_s * state.ddq[i]);
    state.dq[i] += time_s * state.ddq[i];
  }
  return state;
}

PlanClock step_clock(const PlanClock& before, const Plan& plan, const SmoothLimits& limits,
                     const JointArray& peak, const JointArray& ddq, double target) {
  PlanClock clock = before;
  if (before.rate != target || before.rate_rate != 0.0) {
    clock.rate_rate = step_rate(before, plan, limits, peak, ddq, target);
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
