#pragma once

#include <cstdint>
#include <map>

#include "kelvara/damiao_motor/motor_type.hpp"
#include "kelvara/export.hpp"

namespace kelvara::damiao_motor {

/// Plain record of one motor on the bus. Written by the thread that drains the bus, without locks.
class KELVARA_EXPORT Motor {
 public:
  /// @param type      Model; must be one of the table's rows.
  /// @param can_id    Identifier the motor is commanded on.
  /// @param master_id Identifier its feedback carries.
  Motor(MotorType type, unsigned can_id, unsigned master_id);

  void set_enabled(bool value);
  /// Overwrites the seven feedback fields at once (rad, rad/s, N·m, whole degrees, nibbles).
  void update_state(double position, double velocity, double torque, int t_mos, int t_rotor,
                    int feedback_id, int error_code);
  void set_state_tmos(int value);
  void set_state_trotor(int value);
  void set_state_feedback_id(int value);
  void set_state_error_code(int value);
  /// Stores a register value read back.
  void set_temp_param(int rid, double value);
  /// The register's last value read back, or -1.0 when it never was.
  double get_param(int rid) const;
  /// The model's scaling ranges.
  /// @throws std::invalid_argument "Invalid motor type: N" for a value that is no row.
  static LimitParam get_limit_param(MotorType type);

  std::uint32_t can_id;
  std::uint32_t master_id;
  MotorType type;
  bool enabled = false;
  double position = 0.0;              // rad, motor side
  double velocity = 0.0;              // rad/s, motor side
  double torque = 0.0;                // N·m, motor side
  std::int32_t t_mos = 0;             // driver temperature, degrees Celsius
  std::int32_t t_rotor = 0;           // rotor temperature, degrees Celsius
  std::int32_t feedback_id = 0;       // identifier nibble of the last feedback
  std::int32_t error_code = 0;        // state nibble of the last feedback
  std::map<int, double> temp_params;  // register -> last value read back
};

}  // namespace kelvara::damiao_motor
