#include "controller/cycle_step.hpp"

#include <cmath>

#include "kelvara/kinematics/kinematics.hpp"

namespace kelvara::controller {
namespace {

using description::clamp;
using motion::SetPoint;

constexpr double kClipTolerance = 1e-9;  // N·m

void add_model_torque(CycleRecord& record, const JointArray& limits,
                      const RobotKinematics& kinematics) {
  const SetPoint& point = record.set_point;
  kinematics.inverse_dynamics(point.model_q.data(), point.model_dq.data(), point.model_ddq.data(),
                              record.model_torque.data());
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double torque = record.model_torque[i];
    record.torque[i] = clamp(torque, -limits[i], limits[i]);
    record.clipped += std::abs(record.torque[i] - torque) > kClipTolerance ? 1 : 0;
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

PosVelCommands to_pos_vel(const SetPoint& point, const description::MotorSigns& signs) {
  PosVelCommands commands{};
  for (std::size_t i = 0; i < kJointCount; ++i) {
    commands[i] = {static_cast<float>(signs.to_motor(i, point.q[i])),
                   static_cast<float>(std::abs(point.velocity_limit[i]))};
  }
  return commands;
}

}  // namespace

CycleRecord compute_cycle(const motion::Command& command, const motion::Instant& instant,
                          const ControllerSetup& setup, const RobotKinematics& kinematics) {
  CycleRecord record;
  record.time = instant.now;
  record.measured = instant.measured;
  if (setup.uses_pos_vel_mode()) {
    record.set_point = evaluate(command, instant, setup.limits, motion::Approach::kMotor);
    record.sent = to_pos_vel(record.set_point, setup.motor_signs);
  } else {
    record.set_point = evaluate(command, instant, setup.limits, motion::Approach::kReference);
    add_model_torque(record, setup.mit.gravity_tau_limits, kinematics);
    record.sent = to_mit(record, setup);
  }
  return record;
}

}  // namespace kelvara::controller
