#pragma once

#include <array>
#include <vector>

#include "kelvara/motion/planner.hpp"

#include "description/joint_array.hpp"
#include "motion/joint_profile.hpp"

namespace kelvara::motion {

/// One profile for each joint, on the same time. A value.
class SynchronisedProfiles {
 public:
  /// All joints to rest at the target, arriving together: the slowest joint as fast as its limits
  /// allow, the others as late. A joint that is braking already may arrive a little earlier.
  /// @param options A duration longer than the fastest one.
  /// @throws MotionError `kDurationTooShort`.
  static SynchronisedProfiles move(const PlanSample& start, const JointArray& target,
                                   const MotionLimits& limits, const PlanOptions& options);
  /// Each joint brakes to rest as fast as it can.
  static SynchronisedProfiles stop(const PlanSample& start, const MotionLimits& limits);

  double duration_s() const { return duration_s_; }
  PlanSample at(double time_s) const;
  /// The samples of a plan.
  std::vector<PlanSample> sample() const;

 private:
  std::array<JointProfile, kJointCount> joints_;
  double duration_s_ = 0.0;
};

}  // namespace kelvara::motion
