#pragma once

#include "motion/setpoint.hpp"

namespace kelvara::motion {

/// The velocity feed-forward of streamed poses: a filtered, limited difference of successive joint
/// solutions. Steps at the times that it is given.
struct PoseStream {
  JointArray raw_pose_prev_q{};   // rad, the last solution
  JointArray raw_pose_prev_dq{};  // rad/s, the last velocity
  TimePoint raw_pose_last_time{};
  bool raw_pose_initialised = false;

  /// Takes the solution of the instant `now`; returns the velocity to command with it, rad/s.
  JointArray step(const JointArray& q, TimePoint now);
};

}  // namespace kelvara::motion
