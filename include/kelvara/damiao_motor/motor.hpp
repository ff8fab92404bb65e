#pragma once

#include <cstdint>
#include <map>

#include "kelvara/damiao_motor/motor_type.hpp"
#include "kelvara/export.hpp"

namespace kelvara::damiao_motor {

/// Record of one motor on the bus: its model, its identifiers and its last decoded feedback and
/// register values. The thread that drains the bus writes it, without locks.
class KELVARA_EXPORT Motor {
 public:
  /// @param type      Model; must be a row of `MOTOR_LIMIT_PARAMS` (the constructor does not
  ///                  check it).
  /// @param can_id    Identifier of the commands to the motor.
  /// @param master_id Identifier of its feedback.
  Motor(MotorType type, unsigned can_id, unsigned master_id);

  void set_enabled(bool value);
  /// Overwrites the seven feedback fields; units as at the fields.
  void update_state(double position, double velocity, double torque, int t_mos, int t_rotor,
                    int feedback_id, int error_code);
  void set_state_tmos(int value);
  void set_state_trotor(int value);
  void set_state_feedback_id(int value);
  void set_state_error_code(int value);
  /// Stores the last value read back from register `rid`.
  void set_temp_param(int rid, double value);
  /// The last value read back from register `rid`, or -1.0 when there is none.
  double get_param(int rid) const;
  /// The model's scaling ranges.
  /// @throws std::invalid_argument "Invalid motor type: N" for a value beyond the table.
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

/// The name of a motor's state code, for example "Enabled" or "Over-voltage"; never null.
KELVARA_EXPORT const char* motor_error_name(int error_code);

}  // namespace kelvara::damiao_motor
