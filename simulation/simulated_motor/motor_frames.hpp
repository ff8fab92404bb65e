#pragma once

#include <linux/can.h>

#include <cstdint>
#include <optional>

#include "simulation/simulated_motor/motor_model.hpp"

/// The motor's side of the wire format, written without the library's codec, so that a mistake in
/// either shows as a difference.
namespace kelvara::simulation {

/// What a MIT frame commands.
struct MitCommand {
  double kp = 0.0;        // N·m/rad
  double kd = 0.0;        // N·m·s/rad
  double position = 0.0;  // rad
  double velocity = 0.0;  // rad/s
  double torque = 0.0;    // N·m
};
MitCommand decode_mit(const canfd_frame& frame, const MotorModel& model);

/// What a position/velocity frame commands.
struct PositionVelocityCommand {
  float position;        // rad
  float velocity_limit;  // rad/s
};
PositionVelocityCommand decode_position_velocity(const canfd_frame& frame);

/// The command byte of an enable, disable, zero or clear-error frame.
std::optional<std::uint8_t> decode_special(const canfd_frame& frame);

/// A frame on the identifier that all motors share.
struct SharedCommand {
  unsigned can_id;       // of the motor that it is for
  std::uint8_t command;  // query, write or refresh
  std::uint8_t rid;      // register
  std::uint32_t value;   // to be written
};
SharedCommand decode_shared(const canfd_frame& frame);

struct Feedback {
  unsigned can_id;
  unsigned state;  // 0 disabled, 1 enabled, otherwise the error
  double position, velocity, torque;
  unsigned mos_temperature, rotor_temperature;  // °C
};
canfd_frame encode_feedback(const Feedback& feedback, const MotorModel& model, unsigned master_id);
canfd_frame encode_register_reply(const SharedCommand& reply, unsigned master_id);

std::uint32_t bits_of(float value);
float float_of(std::uint32_t bits);

}  // namespace kelvara::simulation
