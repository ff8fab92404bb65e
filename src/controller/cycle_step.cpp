#include "controller/cycle_step.hpp"

#include <algorithm>
#include <cmath>
#include <functional>

#include "kelvara/kinematics/kinematics.hpp"

#include "motion/drive_torque.hpp"

namespace kelvara::controller {
namespace {

using description::clamp;
using motion::SetPoint;

constexpr double kClipTolerance = 1e-9;  // N·m
constexpr int kFadeCycles = 40;          // in which a step of the torque fades out

void add_model_torque(CycleRecord& record, const ControllerSetup& setup,
                      const RobotKinematics& kinematics) {
  const SetPoint& point = record.set_point;
  const JointArray& limits = setup.mit.gravity_tau_limits;
  kinematics.inverse_dynamics(point.model_q.data(), point.model_dq.data(), point.model_ddq.data(),
                              record.model_torque.data());
  if (point.full_dynamics) {
    const JointArray drives =
        motion::drive_torque(setup.joint_dynamics, point.model_dq, point.model_ddq);
    std::transform(drives.begin(), drives.end(), record.model_torque.begin(),
                   record.model_torque.begin(), std::plus<>());
  }
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double torque = record.model_torque[i];
    record.torque[i] = clamp(torque, -limits[i], limits[i]);
    record.clipped += std::abs(record.torque[i] - torque) > kClipTolerance ? 1 : 0;
  }
}

/// Adds what is left of a step of the torque.
void fade_step(CycleRecord& record, const CycleRecord& before, const JointArray& limits) {
  const SetPoint& point = record.set_point;
  if (point.smooth_torque && point.full_dynamics != before.set_point.full_dynamics) {
    std::transform(before.torque.begin(), before.torque.end(), record.torque.begin(),
                   record.fade.step.begin(), std::minus<>());
    record.fade.cycles_left = kFadeCycles;
  } else if (!point.torque_only && before.fade.cycles_left > 0) {
    record.fade = {before.fade.step, before.fade.cycles_left - 1};
  }
  const double s = static_cast<double>(record.fade.cycles_left) / kFadeCycles;
  const double part = s * s * (3.0 - 2.0 * s);
  for (std::size_t i = 0; i < kJointCount; ++i) {
    record.torque[i] = clamp(record.torque[i] + part * record.fade.step[i], -limits[i], limits[i]);
  }
}

MitCommands to_mit(const CycleRecord& record, const ControllerSetup& setup) {
  const SetPoint& point = record.set_point;
  const description::MotorSigns& signs = setup.motor_signs;
  MitCommands commands{};
  for (std::size_t i = 0; i < kJointCount; ++i) {
    commands[i].tau = signs.to_motor(i, record.torque[i]);
    if (!point.torque_only) {
      commands[i].kp = setup.mit.kp[i];
      commands[i].kd = setup.mit.kd[i];
      commands[i].q = signs.to_motor(i, point.q[i]);
      commands[i].dq = signs.to_motor(i, point.dq[i]);
    }
  }
  return commands;
}

/// What makes a motor keep up with a plan. Its own profile brakes for the position that it is sent:
/// at the plan's speed that position must lie its braking distance ahead. The velocity limit leaves
/// room to catch up.
void keep_up(PosVelCommands& commands, const SetPoint& point, const ControllerSetup& setup) {
  constexpr double kCatchUp = 1.1;        // of the plan's speed
  constexpr double kLeastCatchUp = 0.05;  // rad/s
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double dq = point.dq[i];
    const double deceleration = setup.pos_vel.max_dec_limits[i];
    const double ahead = deceleration > 0.0 ? dq * std::abs(dq) / (2.0 * deceleration) : 0.0;
    const double q = setup.limits.joints.clamp_from(i, point.q[i], point.q[i] + ahead);
    const double limit =
        std::min(kCatchUp * std::abs(dq) + kLeastCatchUp, setup.limits.velocity[i]);
    commands[i] = {static_cast<float>(setup.motor_signs.to_motor(i, q)), static_cast<float>(limit)};
  }
}

PosVelCommands to_pos_vel(const SetPoint& point, const ControllerSetup& setup) {
  PosVelCommands commands{};
  if (point.full_dynamics) {
    keep_up(commands, point, setup);
    return commands;
  }
  for (std::size_t i = 0; i < kJointCount; ++i) {
    commands[i] = {static_cast<float>(setup.motor_signs.to_motor(i, point.q[i])),
                   static_cast<float>(std::abs(point.velocity_limit[i]))};
  }
  return commands;
}

}  // namespace

CycleRecord compute_cycle(const motion::Command& command, const motion::Instant& instant,
                          const ControllerSetup& setup, const RobotKinematics& kinematics,
                          const CycleRecord* before) {
  CycleRecord record;
  record.time = instant.now;
  record.measured = instant.measured;
  if (setup.uses_pos_vel_mode()) {
    record.set_point = evaluate(command, instant, setup.limits, motion::Approach::kMotor);
    record.sent = to_pos_vel(record.set_point, setup);
  } else {
    record.set_point = evaluate(command, instant, setup.limits, motion::Approach::kReference);
    add_model_torque(record, setup, kinematics);
    if (before != nullptr) {
      fade_step(record, *before, setup.mit.gravity_tau_limits);
    }
    record.sent = to_mit(record, setup);
  }
  return record;
}

}  // namespace kelvara::controller
