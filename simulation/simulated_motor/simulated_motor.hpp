#pragma once

#include <linux/can.h>

#include <cstdint>
#include <optional>

#include "simulation/simulated_motor/motor_frames.hpp"
#include "simulation/simulated_motor/motor_model.hpp"
#include "simulation/simulated_motor/motor_registers.hpp"
#include "simulation/simulated_motor/position_velocity_control.hpp"

namespace kelvara::simulation {

/// The firmware of one servo motor, from its frames to its torque. It has neither a clock nor a
/// bus: the caller passes frames in and advances the time. All quantities are on the motor's side.
class SimulatedMotor {
 public:
  SimulatedMotor(const MotorModel& model, unsigned can_id, unsigned master_id);

  /// Handles a frame, addressed to this motor or not.
  /// @return the reply on the master identifier, if there is one.
  std::optional<canfd_frame> handle(const canfd_frame& frame);

  /// Advances the time by `dt_s` seconds.
  /// @param position Shaft angle in rad, as the motor's encoder measures it.
  /// @param velocity rad/s.
  /// @return the torque that the motor applies during this time, N·m.
  double advance(double dt_s, double position, double velocity);

  bool is_enabled() const { return enabled_; }
  /// 0 without an error, otherwise 0x8 to 0xE.
  unsigned error() const { return error_; }
  /// 1 MIT, 2 position/velocity.
  unsigned control_mode() const { return registers_.control_mode(); }
  double applied_torque() const { return torque_; }
  /// Whether the motor is enabled and commanded by torque alone: kp and kd are zero.
  bool floats() const {
    return enabled_ && control_mode() == kMitMode && mit_.kp == 0.0 && mit_.kd == 0.0;
  }

  // Faults, for tests.

  /// Raises an error (0x8 to 0xE): the motor disables itself and reports it until it is cleared.
  void raise_error(unsigned code);
  /// A silent motor neither executes commands nor replies.
  void set_silent(bool silent) { silent_ = silent; }
  /// Drops the next `count` replies; their commands are still executed.
  void drop_next_replies(unsigned count) { replies_to_drop_ = count; }
  /// Makes the motor reply to register writes without keeping the value.
  void set_registers_read_only(bool read_only) { registers_.set_read_only(read_only); }

 private:
  std::optional<canfd_frame> execute(const canfd_frame& frame);
  canfd_frame execute_own(const canfd_frame& frame);
  canfd_frame execute_position_velocity(const canfd_frame& frame);
  std::optional<canfd_frame> execute_shared(const canfd_frame& frame);
  bool execute_special(std::uint8_t command);
  void enable();
  void disable();
  void clear_commands();
  void hold_here() { position_velocity_.hold(position()); }
  void write_register(std::uint8_t rid, std::uint32_t value);
  canfd_frame feedback() const;
  double position() const { return shaft_position_ - zero_offset_; }
  double mit_torque() const;
  void warm_up(double dt_s);

  MotorModel model_;
  unsigned can_id_;
  unsigned master_id_;
  MotorRegisters registers_;

  bool enabled_ = false;
  unsigned error_ = 0;
  bool silent_ = false;
  unsigned replies_to_drop_ = 0;
  double silence_s_ = 0.0;  // since the last frame for this motor

  double shaft_position_ = 0.0;  // rad
  double zero_offset_ = 0.0;     // shaft angle that counts as zero, rad
  double velocity_ = 0.0;        // rad/s
  double torque_ = 0.0;          // N·m
  double heat_ = 0.0;            // K above the surroundings

  MitCommand mit_;
  PositionVelocityControl position_velocity_;
};

}  // namespace kelvara::simulation
