#pragma once

#include <memory>

#include "motion/motion_status.hpp"
#include "motion/setpoint.hpp"

namespace kelvara::motion {

/// A plan under execution, shared by the command and those who watch it.
struct PlannedMotion {
  Plan plan;
  SmoothLimits limits;         // of the changes of its speed
  JointArray peak_velocity{};  // of its samples, rad/s
  bool has_offset = false;     // the command stood beside its start
  std::shared_ptr<MotionHandle::Status> status;
};

/// Executes a plan with the whole inverse dynamics as feed-forward, one period of the plan per
/// cycle. It may be slowed down, and stopped, on its path.
struct PlannedMove {
  static constexpr int command_type = 6;

  std::shared_ptr<const PlannedMotion> motion;
  /// Set once it brakes on the path, to end where it comes to rest.
  std::shared_ptr<MotionHandle::Status> stop_status = {};
  /// How it ends then.
  MotionOutcome stop_outcome = MotionOutcome::kStopped;
  // Set by the first cycle:
  bool started = false;
  JointArray offset{};  // rad, from the plan's start to where the command stood; fades out

  void begin(const Instant& instant);
  SetPoint evaluate(const Instant& instant, const SetPointLimits& limits, Approach approach) const;
};

/// How far a plan may start from where the command stands, rad.
inline constexpr double kStartTolerance = 1e-3;
/// Time within which that offset fades out, s.
inline constexpr double kFadeS = 0.25;

}  // namespace kelvara::motion
