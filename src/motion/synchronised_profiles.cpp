#include "motion/synchronised_profiles.hpp"

#include <algorithm>

#include "motion/joint_move.hpp"
#include "motion/joint_slices.hpp"
#include "motion/plan_checks.hpp"
#include "motion/plan_report.hpp"

namespace kelvara::motion {

SynchronisedProfiles SynchronisedProfiles::move(const PlanSample& start, const JointArray& target,
                                                const MotionLimits& limits,
                                                const PlanOptions& options) {
  const auto joint_move = [&](std::size_t i) {
    return JointMove(joint_state(start, i), target[i], rate_limits(limits, i));
  };
  const std::array<JointMove, kJointCount> moves{joint_move(0), joint_move(1), joint_move(2),
                                                 joint_move(3), joint_move(4), joint_move(5)};
  SynchronisedProfiles profiles;
  for (const JointMove& move : moves) {
    profiles.duration_s_ = std::max(profiles.duration_s_, move.duration_s());
  }
  check_duration(options, profiles.duration_s_);
  profiles.duration_s_ = std::max(profiles.duration_s_, options.duration_s);
  for (std::size_t i = 0; i < kJointCount; ++i) {
    profiles.joints_[i] = moves[i].lasting(profiles.duration_s_);
  }
  return profiles;
}

SynchronisedProfiles SynchronisedProfiles::stop(const PlanSample& start,
                                                const MotionLimits& limits) {
  SynchronisedProfiles profiles;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    profiles.joints_[i] = JointMove::stop(joint_state(start, i), rate_limits(limits, i));
    profiles.duration_s_ = std::max(profiles.duration_s_, profiles.joints_[i].duration_s());
  }
  return profiles;
}

PlanSample SynchronisedProfiles::at(double time_s) const {
  PlanSample sample;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    set_joint_state(sample, i, time_s < duration_s_ ? joints_[i].at(time_s) : joints_[i].end());
  }
  return sample;
}

std::vector<PlanSample> SynchronisedProfiles::sample() const {
  std::vector<PlanSample> samples(count_plan_samples(duration_s_));
  for (std::size_t k = 0; k + 1 < samples.size(); ++k) {
    samples[k] = at(plan_sample_time_s(k, duration_s_));
  }
  samples.back() = at(duration_s_);
  return samples;
}

}  // namespace kelvara::motion
