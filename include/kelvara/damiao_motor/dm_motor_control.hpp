#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "kelvara/damiao_motor/motor.hpp"
#include "kelvara/damiao_motor/motor_type.hpp"
#include "kelvara/damiao_motor/motor_values.hpp"
#include "kelvara/export.hpp"

namespace kelvara::damiao_motor {

/// Clamps x to [min, max]; NaN gives `min`.
KELVARA_EXPORT double limit_min_max(double x, double min, double max);
/// Clamps x to [min, max] and maps it to 0 .. 2^bits - 1, truncating; NaN gives 0.
KELVARA_EXPORT unsigned double_to_uint(double x, double min, double max, int bits);
/// Maps 0 .. 2^bits - 1 to [min, max].
KELVARA_EXPORT double uint_to_double(std::uint16_t x, double min, double max, int bits);
/// Little-endian: b0 is the least significant byte.
KELVARA_EXPORT std::uint32_t uint8s_to_uint32(std::uint8_t b0, std::uint8_t b1, std::uint8_t b2,
                                              std::uint8_t b3);
/// The four little-endian bytes of an IEEE-754 single.
KELVARA_EXPORT float uint8s_to_float(const std::array<std::uint8_t, 4>& bytes);
/// True when the register holds an unsigned 32-bit integer; every other register holds a float.
KELVARA_EXPORT bool is_in_ranges(int rid);

/// Encodes the command frames of one motor; each has eight data bytes. Stateless: any thread.
/// Values out of range are clamped, never rejected. The `create_*` functions return whole frames,
/// the `pack_*` functions the data bytes alone.
class KELVARA_EXPORT CanPacketEncoder {
 public:
  static CANPacket create_enable_command(const Motor& motor);
  static CANPacket create_disable_command(const Motor& motor);
  /// Sets the motor's zero to its present position.
  static CANPacket create_set_zero_command(const Motor& motor);
  static CANPacket create_clrErr_command(const Motor& motor);
  /// Requests one feedback frame; carries only the low byte of the motor's identifier.
  static CANPacket create_refresh_command(const Motor& motor);
  /// Requests the value of register `rid`.
  static CANPacket create_query_param_command(const Motor& motor, int rid);
  /// Writes register `rid`; a float goes out as its 32 bits.
  static CANPacket create_write_param_command(const Motor& motor, int rid, unsigned int value);
  static CANPacket create_write_param_command(const Motor& motor, int rid, float value);
  /// Writes the control-mode register; `mode` is a `ControlMode` value.
  static CANPacket create_param_write_RID_command(const Motor& motor, int mode);
  static CANPacket create_mit_control_command(const Motor& motor, const MITParam& param);
  /// Uses the identifier `motor.can_id` + 0x100.
  static CANPacket create_pos_vel_control_command(const Motor& motor, const POS_VELParam& param);

  static std::vector<std::uint8_t> pack_command_data(std::uint8_t cmd);
  static std::vector<std::uint8_t> pack_query_param_data(unsigned id, int rid);
  static std::vector<std::uint8_t> pack_write_param_data(unsigned id, int rid, unsigned value);
  static std::vector<std::uint8_t> pack_write_param_data(unsigned id, int rid, float value);
  static std::vector<std::uint8_t> pack_switch_control_mode_data(unsigned id, int mode);
  static std::vector<std::uint8_t> pack_mit_control_data(MotorType type, const MITParam& param);
  static std::vector<std::uint8_t> pack_posvel_control_data(MotorType type,
                                                            const POS_VELParam& param);
};

/// Decodes the data bytes of received frames. Stateless: any thread. Never throws.
class KELVARA_EXPORT CanPacketDecoder {
 public:
  /// Decodes feedback with the ranges of the motor's model. For fewer than eight bytes prints a
  /// warning line on standard error and returns an all-zero result that is not valid.
  static StateResult parse_motor_state_data(const Motor& motor,
                                            const std::vector<std::uint8_t>& data);
  /// Decodes a register reply. The result is not valid for fewer than eight bytes and, with a
  /// warning line on standard error, for a command byte other than 0x33 and 0x55.
  static ParamResult parse_motor_param_data(const std::vector<std::uint8_t>& data);
};

}  // namespace kelvara::damiao_motor
