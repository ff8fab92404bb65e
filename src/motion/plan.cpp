#include "kelvara/motion/plan.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "description/finite.hpp"
#include "description/joint_array.hpp"
#include "motion/quintic.hpp"

namespace kelvara {
namespace {

// Of a period: how far a duration may lie beyond its last sample.
constexpr double kRounding = 1e-9;

bool is_finite(const PlanSample& sample) {
  return description::all_finite(sample.q) && description::all_finite(sample.dq) &&
         description::all_finite(sample.ddq);
}

motion::Rates<double> rates_of(const PlanSample& sample, std::size_t joint) {
  return {sample.q[joint], sample.dq[joint], sample.ddq[joint]};
}

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
    const auto joint =
        motion::Quintic<double>::between(rates_of(samples_[k], i), rates_of(samples_[k + 1], i), h);
    const motion::Rates<double> rates = joint.at(time_s - begin);
    state.q[i] = rates.value;
    state.dq[i] = rates.first;
    state.ddq[i] = rates.second;
  }
  return state;
}

}  // namespace kelvara
