#pragma once

#include "simulation/simulated_motor/motor_registers.hpp"

namespace kelvara::simulation {

/// The firmware's position/velocity mode: a trapezoidal velocity profile towards a target, tracked
/// by a position loop around a velocity loop with an integral.
class PositionVelocityControl {
 public:
  /// Holds this position (rad) until the next command.
  void hold(double position);
  void clear_integral() { integral_ = 0.0; }
  /// @param position       Target, rad.
  /// @param velocity_limit rad/s; its sign is ignored.
  void command(double position, double velocity_limit);

  /// Lets `dt_s` pass and returns the torque, N·m, not yet limited to the motor's.
  double step(double dt_s, double position, double velocity, const MotorModel& model,
              const MotorRegisters& registers);

 private:
  void step_profile(double dt_s, const MotorRegisters& registers);

  double target_position_ = 0.0;   // rad
  double velocity_limit_ = 0.0;    // rad/s
  double profile_position_ = 0.0;  // rad
  double profile_velocity_ = 0.0;  // rad/s
  double integral_ = 0.0;          // N·m
};

}  // namespace kelvara::simulation
