#pragma once

#include <bitset>
#include <vector>

#include "kelvara/motion/planner.hpp"

#include "description/joint_array.hpp"

namespace kelvara::motion {

/// Joints that stand still at a via point.
using StandingJoints = std::bitset<kJointCount>;

/// A motion through via points, at rest at both ends: a quintic for each joint and segment, with
/// continuous velocity and acceleration. Their values at the via points minimise the integral of
/// the squared jerk plus `weight` (1/s²) times that of the squared acceleration: the more weight,
/// the flatter the velocity.
class ViaSpline {
 public:
  struct Course {
    std::vector<JointArray> points;        // rad, at least two
    std::vector<StandingJoints> standing;  // one per point
    std::size_t parts = 1;                 // segments from one point that matters to the next
  };

  /// @param durations Of the segments, s, positive.
  ViaSpline(const Course& course, std::vector<double> durations, double weight);

  /// By how much a segment exceeds the limits; see `JointSegment::stretch`.
  double stretch(std::size_t segment, const MotionLimits& limits) const;
  /// The state `time_s` after a segment's begin.
  PlanSample at(std::size_t segment, double time_s) const;
  const std::vector<double>& durations() const { return durations_; }
  double duration_s() const;
  double weight() const { return weight_; }
  /// The same motion, slower by a factor.
  void stretch_by(double factor);

 private:
  void solve(const Course& course, std::size_t joint);

  std::vector<double> durations_;
  double weight_;
  std::vector<PlanSample> nodes_;
};

}  // namespace kelvara::motion
