#include "controller/setpoint.hpp"

#include <chrono>
#include <cmath>

namespace kelvara::controller {
namespace {

// Shorter moves have no rate.
constexpr double kMinMoveDurationS = 1e-6;
// Gain from the distance to the target to the reference's velocity, 1/s.
constexpr double kReferenceGain = 8.0;

double seconds_between(TimePoint start, TimePoint end) {
  return std::chrono::duration<double>(end - start).count();
}

SetPoint hold(const JointArray& measured) {
  SetPoint point;
  point.q = measured;
  point.model_q = measured;
  return point;
}

double speed_limit(double velocity, double limit) { return clamp(std::abs(velocity), 0.0, limit); }

/// The septic blend: from rest to rest, with velocity, acceleration and jerk zero at both ends.
SetPoint smooth_move(const CommandSlot& command, const JointArray& measured, TimePoint now,
                     const SetPointLimits& limits) {
  const double T = command.traj_duration_s;
  SetPoint point = hold(measured);
  if (!(T > kMinMoveDurationS)) {
    return point;  // also a duration that is no number
  }
  const double s = clamp(seconds_between(command.traj_start_time, now) / T, 0.0, 1.0);
  const double s3 = s * s * s;
  const double blend = s3 * s * (35.0 + s * (-84.0 + s * (70.0 - 20.0 * s)));
  const double rate = s3 * (140.0 + s * (-420.0 + s * (420.0 - 140.0 * s))) / T;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double delta = command.target_q[i] - command.traj_start_q[i];
    point.q[i] = limits.joints.clamp_joint(i, command.traj_start_q[i] + delta * blend);
    point.dq[i] = delta * rate;
    point.velocity_limit[i] = speed_limit(point.dq[i], limits.velocity[i]);
  }
  point.completed = s >= 1.0;
  return point;
}

SetPoint play_waypoints(const CommandSlot& command, const JointArray& measured, TimePoint now,
                        const SetPointLimits& limits) {
  SetPoint point = hold(measured);
  if (!command.waypoints || command.waypoints->empty()) {
    return point;
  }
  const std::size_t last = command.waypoints->size() - 1;
  const double position =
      std::floor(seconds_between(command.waypoints_start_time, now) / command.waypoint_dt_s);
  // Bounded before it becomes an index: it may lie far beyond the list.
  const auto k = static_cast<std::size_t>(clamp(position, 0.0, static_cast<double>(last)));
  const WaypointTrajectorySample& sample = (*command.waypoints)[k];
  for (std::size_t i = 0; i < kJointCount; ++i) {
    point.q[i] = limits.joints.clamp_joint(i, sample.q[i]);
    point.dq[i] = sample.dq[i];
    point.velocity_limit[i] = speed_limit(sample.dq[i], limits.velocity[i]);
  }
  point.model_q = point.q;
  point.model_dq = point.dq;
  point.model_ddq = sample.ddq;
  point.completed = k == last;
  return point;
}

/// Moves the reference one period towards the target within the velocity and acceleration limits.
SetPoint follow_target(const CommandSlot& command, const JointArray& measured,
                       const SetPointLimits& limits, MitReference& reference) {
  if (!reference.initialised) {
    reference = {true, measured, JointArray{}};
  }
  SetPoint point;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double target = limits.joints.clamp_joint(i, command.target_q[i]);
    const double last_q = reference.q[i];
    const double last_dq = reference.dq[i];
    const double step = limits.acceleration[i] * kControlPeriodS;
    double v = clamp((target - last_q) * kReferenceGain + command.target_dq[i], -limits.velocity[i],
                     limits.velocity[i]);
    v = clamp(v, last_dq - step, last_dq + step);
    const double candidate = last_q + v * kControlPeriodS;
    const bool short_of_target = (target - last_q) * (target - candidate) > 0.0;
    reference.q[i] = short_of_target ? limits.joints.clamp_joint(i, candidate) : target;
    reference.dq[i] = v;
    point.q[i] = reference.q[i];
    point.dq[i] = v;
    point.model_ddq[i] = short_of_target ? (v - last_dq) / kControlPeriodS : 0.0;
  }
  point.model_q = point.q;
  point.model_dq = point.dq;
  return point;
}

SetPoint hold_target(const CommandSlot& command, const SetPointLimits& limits) {
  SetPoint point;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    point.q[i] = limits.joints.clamp_joint(i, command.target_q[i]);
  }
  point.velocity_limit = limits.velocity;
  return point;
}

SetPoint float_freely(const JointArray& measured) {
  SetPoint point;
  point.model_q = measured;
  point.torque_only = true;
  return point;
}

}  // namespace

SetPoint evaluate_setpoint(const CommandSlot& command, const JointArray& measured, TimePoint now,
                           const SetPointLimits& limits, damiao_motor::ControlMode mode,
                           MitReference& reference) {
  if (command.command_type == kJointTarget && mode == damiao_motor::MIT_MODE) {
    return follow_target(command, measured, limits, reference);
  }
  // The next joint target starts from where the arm is then.
  reference.initialised = false;
  reference.dq = {};
  switch (command.command_type) {
    case kJointTarget:
      return hold_target(command, limits);
    case kSmoothMove:
      return smooth_move(command, measured, now, limits);
    case kWaypointTrajectory:
      return play_waypoints(command, measured, now, limits);
    case kRegressorGravity:
    case kChainGravity:
      return float_freely(measured);
    default:
      return hold(measured);
  }
}

}  // namespace kelvara::controller
