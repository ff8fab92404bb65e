#include "kelvara/motion/plan.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "description/finite.hpp"
#include "description/joint_array.hpp"

namespace kelvara {
namespace {

// Of a period: how far a duration may lie beyond its last sample.
constexpr double kRounding = 1e-9;

bool is_finite(const PlanSample& sample) {
  return description::all_finite(sample.q) && description::all_finite(sample.dq) &&
         description::all_finite(sample.ddq);
}

/// One joint between two samples.
struct Quintic {
  /// The polynomial of the fifth degree that meets both ends; `h`: time between them, s.
  Quintic(const PlanSample& from, const PlanSample& to, std::size_t joint, double h)
      : q0(from.q[joint]), v0(from.dq[joint]), a0(from.ddq[joint]) {
    const double dq = to.q[joint] - q0 - h * (v0 + 0.5 * h * a0);
    const double dv = (to.dq[joint] - v0 - h * a0) * h;
    const double da = (to.ddq[joint] - a0) * h * h;
    const double h3 = h * h * h;
    c3 = (10.0 * dq - 4.0 * dv + 0.5 * da) / h3;
    c4 = (-15.0 * dq + 7.0 * dv - da) / (h3 * h);
    c5 = (6.0 * dq - 3.0 * dv + 0.5 * da) / (h3 * h * h);
  }

  double q(double t) const { return q0 + t * (v0 + t * (0.5 * a0 + t * (c3 + t * (c4 + t * c5)))); }
  double dq(double t) const {
    return v0 + t * (a0 + t * (3.0 * c3 + t * (4.0 * c4 + t * 5.0 * c5)));
  }
  double ddq(double t) const { return a0 + t * (6.0 * c3 + t * (12.0 * c4 + t * 20.0 * c5)); }

  double q0, v0, a0;
  double c3, c4, c5;
};

}  // namespace

Plan::Plan() = default;
Plan::Plan(const Plan&) = default;
Plan::Plan(Plan&&) noexcept = default;
Plan& Plan::operator=(const Plan&) = default;
Plan& Plan::operator=(Plan&&) noexcept = default;
Plan::~Plan() = default;

Plan::Plan(std::vector<PlanSample> samples, double duration_s, const PlanReport& report)
    : samples_(std::move(samples)), duration_s_(duration_s), report_(report) {
  const double periods = duration_s / kSamplePeriodS;
  const double last = static_cast<double>(samples_.size()) - 1.0;
  if (!(duration_s >= 0.0) || samples_.empty() || periods > last + kRounding ||
      (samples_.size() > 1 && !(periods > last - 1.0 - kRounding))) {
    throw std::invalid_argument("Plan: the number of samples does not match the duration");
  }
  if (!std::all_of(samples_.begin(), samples_.end(), is_finite)) {
    throw std::invalid_argument("Plan: samples must be finite");
  }
}

double Plan::sample_time_s(std::size_t index) const {
  return std::min(static_cast<double>(index) * kSamplePeriodS, duration_s_);
}

PlanSample Plan::at(double time_s) const {
  const std::size_t last = samples_.size() - 1;
  if (!(time_s > 0.0) || time_s >= duration_s_) {
    PlanSample rest = !(time_s > 0.0) ? samples_.front() : samples_.back();
    if (time_s < 0.0 || time_s > duration_s_) {
      rest.dq = {};
      rest.ddq = {};
    }
    return rest;
  }
  const auto k = std::min(static_cast<std::size_t>(time_s / kSamplePeriodS), last - 1);
  const double begin = sample_time_s(k);
  const double h = sample_time_s(k + 1) - begin;
  PlanSample state = samples_[k];
  for (std::size_t i = 0; h > 0.0 && i < kJointCount; ++i) {
    const Quintic joint(samples_[k], samples_[k + 1], i, h);
    state.q[i] = joint.q(time_s - begin);
    state.dq[i] = joint.dq(time_s - begin);
    state.ddq[i] = joint.ddq(time_s - begin);
  }
  return state;
}

}  // namespace kelvara
