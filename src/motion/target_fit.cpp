#include "motion/target_fit.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "description/timing.hpp"

namespace kelvara::motion {
namespace {

constexpr double kWindowS = 0.05;
constexpr std::size_t kLeastTargets = 3;
constexpr double kMaxPeriodS = 0.06;
// In a shorter time noise looks like a velocity.
constexpr double kMinIntervalS = 0.003;
constexpr double kMinBridgeS = 0.01;
// Of the acceleration limit; the rest is for the approach.
constexpr double kAccelerationShare = 0.9;

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

}  // namespace

TargetFit::TargetFit(const Follow& stream)
    : stream_(stream),
      first_(Follow::kHistory - std::min(stream.count, kLeastTargets)),
      period_s_(median_period_s(stream)) {
  const auto& targets = stream.targets;
  while (first_ > Follow::kHistory - stream.count &&
         targets.back().time_s - targets[first_ - 1].time_s <= kWindowS) {
    --first_;
  }
  const auto count = static_cast<double>(Follow::kHistory - first_);
  for (std::size_t k = first_; k < Follow::kHistory; ++k) {
    mean_s_ += (targets[k].time_s - targets.back().time_s) / count;
  }
  mean_s_ += targets.back().time_s;
  double third = 0.0;
  for (std::size_t k = first_; k < Follow::kHistory; ++k) {
    const double u = targets[k].time_s - mean_s_;
    variance_ += u * u / count;
    third += u * u * u / count;
  }
  skew_ = variance_ > 0.0 ? third / variance_ : 0.0;
  for (std::size_t k = first_; k < Follow::kHistory; ++k) {
    norm_ += std::pow(square(targets[k].time_s - mean_s_), 2);
  }
}

JointState TargetFit::at(double time_s, std::size_t joint, const RateLimits& limits) const {
  const auto& targets = stream_.targets;
  const StampedTarget& last = targets.back();
  const auto count = static_cast<double>(Follow::kHistory - first_);
  double mean = 0.0, slope = 0.0, bend = 0.0;
  for (std::size_t k = first_; k < Follow::kHistory; ++k) {
    const double u = targets[k].time_s - mean_s_;
    const double q = targets[k].q[joint] - last.q[joint];
    mean += q / count;
    slope += u * q;
    bend += square(u) * q;
  }
  slope = count > 1.0 ? slope / (count * variance_) : 0.0;
  const double a_max = kAccelerationShare * limits.acceleration;
  const double ddq = count > 2.0 ? feasible(2.0 * bend / norm_, a_max) : 0.0;
  const auto position = [&](double t) {
    return last.q[joint] + mean + slope * (t - mean_s_) + 0.5 * ddq * square(t - mean_s_);
  };
  const double t =
      std::clamp(time_s, targets[first_].time_s, last.time_s + std::max(period_s_, kMinBridgeS));
  const double known_s = std::min(t, last.time_s);
  const double reach = limits.velocity * (t - known_s);
  const double q = position(known_s) + std::clamp(position(t) - position(known_s), -reach, reach);
  if (t != time_s) {
    return {q, 0.0, 0.0};
  }
  const double dq = slope + ddq * (t - mean_s_ - 0.5 * skew_);
  const double speed = std::min(std::abs(dq), steady_speed(t, joint, dq, a_max));
  return {q, std::copysign(std::min(speed, limits.velocity), dq), speed < std::abs(dq) ? 0.0 : ddq};
}

double TargetFit::steady_speed(double time_s, std::size_t joint, double dq, double a_max) const {
  double speed = std::abs(dq);
  for (std::size_t k = first_ + 1; k < Follow::kHistory; ++k) {
    const StampedTarget& from = stream_.targets[k - 1];
    const StampedTarget& to = stream_.targets[k];
    if (to.time_s - from.time_s < kMinIntervalS) {
      continue;
    }
    const double mean_speed =
        std::copysign(1.0, dq) * (to.q[joint] - from.q[joint]) / (to.time_s - from.time_s);
    const double away_s = std::max(std::abs(time_s - 0.5 * (from.time_s + to.time_s)), kMinBridgeS);
    speed = std::min(speed, std::max(mean_speed, 0.0) + a_max * away_s);
  }
  return speed;
}

}  // namespace kelvara::motion
