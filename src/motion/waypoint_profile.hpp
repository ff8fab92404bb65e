#pragma once

#include <vector>

#include "kelvara/motion/planner.hpp"

#include "description/joint_limits.hpp"
#include "motion/via_spline.hpp"

namespace kelvara::motion {

/// A motion through via points, as fast as found. It passes them at whole periods of the plan, so
/// that samples hit them exactly.
class WaypointProfile {
 public:
  /// @param points At least two, each unlike the one before, inside `joints`, the first perhaps
  ///               outside.
  /// @param joints The position limits: a joint that the spline would lead beyond them stands
  ///               still at the neighbouring via points.
  /// @throws MotionError `kDurationTooShort`, std::length_error for too many samples.
  WaypointProfile(const std::vector<JointArray>& points, const description::JointLimits& joints,
                  const MotionLimits& limits, const PlanOptions& options);

  double duration_s() const { return duration_s_; }
  /// The samples of a plan.
  std::vector<PlanSample> sample() const;

 private:
  PlanSample start_;
  PlanSample end_;
  ViaSpline spline_;
  double duration_s_;
};

}  // namespace kelvara::motion
