#include "simulation/simulated_motor/position_velocity_control.hpp"

#include <algorithm>
#include <cmath>

namespace kelvara::simulation {
namespace {

constexpr double kIntegralTimeS = 0.08;  // of the velocity loop

}  // namespace

void PositionVelocityControl::hold(double position) {
  profile_position_ = target_position_ = position;
  profile_velocity_ = 0.0;
  velocity_limit_ = 0.0;
}

void PositionVelocityControl::command(double position, double velocity_limit) {
  target_position_ = position;
  velocity_limit_ = std::abs(velocity_limit);
}

/// Moves the profile towards the target: a trapezoid of velocity, re-planned at every step.
void PositionVelocityControl::step_profile(double dt_s, const MotorRegisters& registers) {
  const double acceleration = registers.acceleration();
  const double deceleration = registers.deceleration();
  const double distance = target_position_ - profile_position_;
  // The highest speed that can still stop at the target and does not pass it within this step.
  const double speed =
      std::min({velocity_limit_, std::sqrt(2.0 * deceleration * std::abs(distance)),
                std::abs(distance) / dt_s});
  const double wanted = std::copysign(speed, distance);
  const bool slowing = std::abs(wanted) < std::abs(profile_velocity_);
  const double step = (slowing ? deceleration : acceleration) * dt_s;
  profile_velocity_ += std::clamp(wanted - profile_velocity_, -step, step);
  profile_position_ += profile_velocity_ * dt_s;
}

double PositionVelocityControl::step(double dt_s, double position, double velocity,
                                     const MotorModel& model, const MotorRegisters& registers) {
  step_profile(dt_s, registers);
  const double velocity_error =
      profile_velocity_ + registers.position_gain() * (profile_position_ - position) - velocity;
  const double proportional = model.velocity_gain * velocity_error;
  const double torque = proportional + integral_;
  // The integral carries the arm's weight; it stops growing where the torque is at its limit.
  const bool saturated = std::abs(torque) >= model.tmax && torque * velocity_error > 0.0;
  if (!saturated) {
    integral_ += proportional * dt_s / kIntegralTimeS;
  }
  return torque;
}

}  // namespace kelvara::simulation
