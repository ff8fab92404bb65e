#pragma once

#include <cstdint>
#include <map>

#include "simulation/simulated_motor/motor_model.hpp"

namespace kelvara::simulation {

inline constexpr unsigned kMitMode = 1;
inline constexpr unsigned kPositionVelocityMode = 2;

/// A motor's registers, as raw 32-bit patterns.
class MotorRegisters {
 public:
  MotorRegisters(const MotorModel& model, unsigned can_id, unsigned master_id);

  /// Keeps a value, unless the motor refuses it: an unknown mode, a range that belongs to the
  /// model, a tuning value that is NaN or infinite.
  void write(std::uint8_t rid, std::uint32_t value);
  /// 0 for a register that does not exist.
  std::uint32_t read(std::uint8_t rid) const;

  unsigned control_mode() const;
  double acceleration() const;   // rad/s²
  double deceleration() const;   // rad/s²
  double position_gain() const;  // 1/s
  double timeout_s() const;      // 0: none

  /// For tests: ignores all writes from now on.
  void set_read_only(bool read_only) { read_only_ = read_only; }

 private:
  double number(std::uint8_t rid) const;

  std::map<std::uint8_t, std::uint32_t> values_;
  bool read_only_ = false;
};

}  // namespace kelvara::simulation
