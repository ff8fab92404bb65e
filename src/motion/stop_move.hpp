#pragma once

#include <memory>
#include <optional>

#include "motion/joint_profile.hpp"
#include "motion/motion_status.hpp"
#include "motion/setpoint.hpp"

namespace kelvara::motion {

/// Brakes every joint to rest from where the command stands, within the limits of acceleration and
/// jerk (harder where a joint limit is nearer), and then holds it. Advances one period per cycle.
struct StopMove {
  static constexpr int command_type = 7;

  SmoothLimits limits;
  description::JointLimits range;
  std::optional<JointArray> target = {};  // of the motion that is stopped, rad
  std::shared_ptr<MotionHandle::Status> status;
  // Set by the first cycle:
  bool started = false;
  std::array<JointProfile, kJointCount> joints{};
  double duration_s = 0.0;

  void begin(const Instant& instant);
  SetPoint evaluate(const Instant& instant, const SetPointLimits& limits, Approach approach) const;
};

/// The stop at the limits, or the gentlest harder one that stays inside the joint limits.
JointProfile stop_inside(const JointState& from, double a_max, double j_max, std::size_t joint,
                         const description::JointLimits& range);
/// One joint that brakes to rest as fast as the limits of acceleration and jerk allow; a limit that
/// is zero counts as a small one.
JointProfile stop_joint(const JointState& from, double a_max, double j_max);

}  // namespace kelvara::motion
