#pragma once

#include <linux/can.h>

#include <cstdint>
#include <map>
#include <optional>

namespace kelvara::simulation {

/// What a motor model's frames are scaled with, each over [-max, +max], and how strong it is.
struct MotorModel {
  double pmax;           // rad
  double vmax;           // rad/s
  double tmax;           // N·m, also the torque limit
  double velocity_gain;  // N·m·s/rad, of the velocity loop in position/velocity mode
};

/// The firmware of one servo motor, from its frames to its torque. It has no clock and no bus of
/// its own: frames are handed to it, and time passes when it is told to. Everything is motor side.
class SimulatedMotor {
 public:
  SimulatedMotor(const MotorModel& model, unsigned can_id, unsigned master_id);

  /// Takes a frame, addressed to this motor or not.
  /// @return its answer on the master identifier, if it gives one.
  std::optional<canfd_frame> handle(const canfd_frame& frame);

  /// Lets `dt_s` seconds pass.
  /// @param position Shaft angle in rad, as the motor's encoder sees it.
  /// @param velocity rad/s.
  /// @return the torque that the motor applies meanwhile, N·m.
  double advance(double dt_s, double position, double velocity);

  bool is_enabled() const { return enabled_; }
  /// 0 without an error, otherwise 0x8 to 0xE.
  unsigned error() const { return error_; }
  /// 1 MIT, 2 position/velocity.
  unsigned control_mode() const { return registers_.at(10); }
  double applied_torque() const { return torque_; }
  /// Under power, and asked for a torque alone: kp and kd are zero.
  bool floats() const {
    return enabled_ && control_mode() == 1 && mit_.kp == 0.0 && mit_.kd == 0.0;
  }

  // Faults, for tests.

  /// Raises an error (0x8 to 0xE): the motor lets go and reports it until it is cleared.
  void raise_error(unsigned code);
  /// A silent motor neither obeys nor answers.
  void set_silent(bool silent) { silent_ = silent; }
  /// The next `count` answers get lost; what was asked is still obeyed.
  void drop_next_replies(unsigned count) { replies_to_drop_ = count; }
  /// Lets register writes be answered but not kept.
  void set_registers_read_only(bool read_only) { registers_read_only_ = read_only; }

 private:
  struct MitCommand {
    double kp = 0.0, kd = 0.0, position = 0.0, velocity = 0.0, torque = 0.0;
  };

  std::optional<canfd_frame> obey(const canfd_frame& frame);
  std::optional<canfd_frame> handle_shared(const canfd_frame& frame);
  bool obey_special(std::uint8_t command);
  void enable();
  void disable();
  void start_afresh();
  void hold_here();
  void write_register(std::uint8_t rid, std::uint32_t value);
  canfd_frame register_reply(std::uint8_t command, std::uint8_t rid) const;
  canfd_frame feedback() const;
  float register_float(std::uint8_t rid) const;
  double mit_torque() const;
  double position_velocity_torque(double dt_s);
  void step_profile(double dt_s);

  MotorModel model_;
  unsigned can_id_;
  unsigned master_id_;
  std::map<std::uint8_t, std::uint32_t> registers_;  // raw 32-bit patterns

  bool enabled_ = false;
  unsigned error_ = 0;
  bool silent_ = false;
  unsigned replies_to_drop_ = 0;
  bool registers_read_only_ = false;
  double unheard_s_ = 0.0;  // since the last frame for this motor

  double shaft_position_ = 0.0;
  double zero_offset_ = 0.0;  // shaft angle that counts as zero
  double velocity_ = 0.0;
  double torque_ = 0.0;
  double heat_ = 0.0;  // K above the surroundings

  MitCommand mit_;
  double target_position_ = 0.0;
  double velocity_limit_ = 0.0;
  double profile_position_ = 0.0;
  double profile_velocity_ = 0.0;
  double integral_ = 0.0;  // N·m
};

}  // namespace kelvara::simulation
