#include "kelvara/damiao_motor/dm_motor_control.hpp"

#include <cmath>
#include <cstring>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <string>

#include "damiao_motor/frame_payload.hpp"

namespace kelvara::damiao_motor {
namespace {

constexpr double kMaxKp = 500.0;
constexpr double kMaxKd = 5.0;

constexpr std::uint8_t low_byte(std::uint32_t value) {
  return static_cast<std::uint8_t>(value & 0xFFU);
}
constexpr std::uint8_t second_byte(std::uint32_t value) { return low_byte(value >> 8U); }

const LimitParam& limits_of(MotorType type) {
  return MOTOR_LIMIT_PARAMS[static_cast<std::size_t>(type)];
}

std::vector<std::uint8_t> to_vector(const Payload& payload) {
  return {payload.begin(), payload.end()};
}

CANPacket packet(std::uint32_t can_id, const Payload& payload) {
  return {can_id, to_vector(payload)};
}

}  // namespace

// ---- Motor ----------------------------------------------------------------

Motor::Motor(MotorType motor_type, unsigned command_id, unsigned feedback_can_id)
    : can_id(command_id), master_id(feedback_can_id), type(motor_type) {}

void Motor::set_enabled(bool value) { enabled = value; }

void Motor::update_state(double new_position, double new_velocity, double new_torque, int new_t_mos,
                         int new_t_rotor, int new_feedback_id, int new_error_code) {
  position = new_position;
  velocity = new_velocity;
  torque = new_torque;
  t_mos = new_t_mos;
  t_rotor = new_t_rotor;
  feedback_id = new_feedback_id;
  error_code = new_error_code;
}

void Motor::set_state_tmos(int value) { t_mos = value; }
void Motor::set_state_trotor(int value) { t_rotor = value; }
void Motor::set_state_feedback_id(int value) { feedback_id = value; }
void Motor::set_state_error_code(int value) { error_code = value; }

void Motor::set_temp_param(int rid, double value) { temp_params[rid] = value; }

double Motor::get_param(int rid) const {
  const auto entry = temp_params.find(rid);
  return entry == temp_params.end() ? -1.0 : entry->second;
}

LimitParam Motor::get_limit_param(MotorType type) {
  const auto row = static_cast<std::size_t>(type);
  if (row >= MOTOR_LIMIT_PARAMS.size()) {
    throw std::invalid_argument("Invalid motor type: " + std::to_string(row));
  }
  return MOTOR_LIMIT_PARAMS[row];
}

// ---- Scaling --------------------------------------------------------------

double limit_min_max(double x, double min, double max) {
  const double below_max = max < x ? max : x;
  return below_max > min ? below_max : min;
}

unsigned double_to_uint(double x, double min, double max, int bits) {
  const double clamped = limit_min_max(x, min, max);
  const double scaled = (clamped - min) / (max - min) * ((1 << bits) - 1);
  return static_cast<unsigned>(static_cast<std::int32_t>(scaled));
}

double uint_to_double(std::uint16_t x, double min, double max, int bits) {
  return min + static_cast<double>(x) / ((1 << bits) - 1) * (max - min);
}

std::uint32_t uint8s_to_uint32(std::uint8_t b0, std::uint8_t b1, std::uint8_t b2, std::uint8_t b3) {
  return std::uint32_t{b0} | std::uint32_t{b1} << 8U | std::uint32_t{b2} << 16U |
         std::uint32_t{b3} << 24U;
}

float uint8s_to_float(const std::array<std::uint8_t, 4>& bytes) {
  float value = 0.0F;
  std::memcpy(&value, bytes.data(), sizeof(value));
  return value;
}

bool is_in_ranges(int rid) {
  switch (rid) {
    case 7:
    case 8:
    case 9:
    case 10:
    case 13:
    case 14:
    case 15:
    case 16:
    case 35:
    case 36:
      return true;
    default:
      return false;
  }
}

// ---- Payloads -------------------------------------------------------------

Payload command_payload(std::uint8_t command) {
  return {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, command};
}

Payload refresh_payload(unsigned id) {
  return {low_byte(id), 0x00, kRefreshCommand, 0x00, 0x00, 0x00, 0x00, 0x00};
}

Payload query_payload(unsigned id, int rid) {
  return {low_byte(id), second_byte(id), kQueryCommand, low_byte(static_cast<unsigned>(rid))};
}

Payload write_payload(unsigned id, int rid, std::uint32_t value) {
  return {low_byte(id),           second_byte(id),
          kWriteCommand,          low_byte(static_cast<unsigned>(rid)),
          low_byte(value),        second_byte(value),
          low_byte(value >> 16U), low_byte(value >> 24U)};
}

Payload write_payload(unsigned id, int rid, float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof(bits));
  return write_payload(id, rid, bits);
}

Payload mit_payload(MotorType type, const MITParam& param) {
  const auto& [pmax, vmax, tmax] = limits_of(type);
  const unsigned kp = double_to_uint(param.kp, 0.0, kMaxKp, 12);
  const unsigned kd = double_to_uint(param.kd, 0.0, kMaxKd, 12);
  const unsigned q = double_to_uint(param.q, -pmax, pmax, 16);
  const unsigned dq = double_to_uint(param.dq, -vmax, vmax, 12);
  const unsigned tau = double_to_uint(param.tau, -tmax, tmax, 12);
  return {second_byte(q),
          low_byte(q),
          low_byte(dq >> 4U),
          low_byte((dq & 0xFU) << 4U | kp >> 8U),
          low_byte(kp),
          low_byte(kd >> 4U),
          low_byte((kd & 0xFU) << 4U | tau >> 8U),
          low_byte(tau)};
}

Payload pos_vel_payload(const POS_VELParam& param) {
  static_assert(sizeof(POS_VELParam) == kPayloadSize);
  Payload payload;
  std::memcpy(payload.data(), &param, payload.size());
  return payload;
}

StateResult decode_state(MotorType type, const std::uint8_t* data, std::size_t size) {
  if (size < kPayloadSize) {
    std::cerr << "Warning: Skipping motor state data less than 8 bytes\n";
    return StateResult{};
  }
  const auto& [pmax, vmax, tmax] = limits_of(type);
  const auto position = static_cast<std::uint16_t>(data[1] << 8 | data[2]);
  const auto velocity = static_cast<std::uint16_t>(data[3] << 4 | data[4] >> 4);
  const auto torque = static_cast<std::uint16_t>((data[4] & 0x0F) << 8 | data[5]);
  StateResult result{};
  result.position = uint_to_double(position, -pmax, pmax, 16);
  result.velocity = uint_to_double(velocity, -vmax, vmax, 12);
  result.torque = uint_to_double(torque, -tmax, tmax, 12);
  result.t_mos = data[6];
  result.t_rotor = data[7];
  result.feedback_id = data[0] & 0x0F;
  result.error_code = data[0] >> 4;
  result.valid = true;
  return result;
}

ParamResult decode_param(const std::uint8_t* data, std::size_t size) {
  constexpr ParamResult kInvalid{0, std::numeric_limits<double>::quiet_NaN(), 0, false};
  if (size < kPayloadSize) {
    return kInvalid;
  }
  const std::uint8_t command = data[2];
  if (command != kWriteCommand && command != kQueryCommand) {
    std::cerr << "WARNING: INVALID PARAM DATA\n";
    return kInvalid;
  }
  const int rid = data[3];
  const double value =
      is_in_ranges(rid)
          ? static_cast<double>(uint8s_to_uint32(data[4], data[5], data[6], data[7]))
          : static_cast<double>(uint8s_to_float({data[4], data[5], data[6], data[7]}));
  return {rid, value, command, true};
}

// ---- Encoder --------------------------------------------------------------

CANPacket CanPacketEncoder::create_enable_command(const Motor& motor) {
  return packet(motor.can_id, command_payload(kEnableCommand));
}

CANPacket CanPacketEncoder::create_disable_command(const Motor& motor) {
  return packet(motor.can_id, command_payload(kDisableCommand));
}

CANPacket CanPacketEncoder::create_set_zero_command(const Motor& motor) {
  return packet(motor.can_id, command_payload(kSetZeroCommand));
}

CANPacket CanPacketEncoder::create_clrErr_command(const Motor& motor) {
  return packet(motor.can_id, command_payload(kClearErrorCommand));
}

CANPacket CanPacketEncoder::create_refresh_command(const Motor& motor) {
  return packet(kBroadcastId, refresh_payload(motor.can_id));
}

CANPacket CanPacketEncoder::create_query_param_command(const Motor& motor, int rid) {
  return packet(kBroadcastId, query_payload(motor.can_id, rid));
}

CANPacket CanPacketEncoder::create_write_param_command(const Motor& motor, int rid,
                                                       unsigned int value) {
  return packet(kBroadcastId, write_payload(motor.can_id, rid, value));
}

CANPacket CanPacketEncoder::create_write_param_command(const Motor& motor, int rid, float value) {
  return packet(kBroadcastId, write_payload(motor.can_id, rid, value));
}

CANPacket CanPacketEncoder::create_param_write_RID_command(const Motor& motor, int mode) {
  return {kBroadcastId, pack_switch_control_mode_data(motor.can_id, mode)};
}

CANPacket CanPacketEncoder::create_mit_control_command(const Motor& motor, const MITParam& param) {
  return packet(motor.can_id, mit_payload(motor.type, param));
}

CANPacket CanPacketEncoder::create_pos_vel_control_command(const Motor& motor,
                                                           const POS_VELParam& param) {
  return packet(motor.can_id + kPosVelIdOffset, pos_vel_payload(param));
}

std::vector<std::uint8_t> CanPacketEncoder::pack_command_data(std::uint8_t cmd) {
  return to_vector(command_payload(cmd));
}

std::vector<std::uint8_t> CanPacketEncoder::pack_query_param_data(unsigned id, int rid) {
  return to_vector(query_payload(id, rid));
}

std::vector<std::uint8_t> CanPacketEncoder::pack_write_param_data(unsigned id, int rid,
                                                                  unsigned value) {
  return to_vector(write_payload(id, rid, value));
}

std::vector<std::uint8_t> CanPacketEncoder::pack_write_param_data(unsigned id, int rid,
                                                                  float value) {
  return to_vector(write_payload(id, rid, value));
}

std::vector<std::uint8_t> CanPacketEncoder::pack_switch_control_mode_data(unsigned id, int mode) {
  // The mode travels in one byte; the other three of the value are zero.
  return to_vector(write_payload(id, kControlModeRegister,
                                 std::uint32_t{low_byte(static_cast<unsigned>(mode))}));
}

std::vector<std::uint8_t> CanPacketEncoder::pack_mit_control_data(MotorType type,
                                                                  const MITParam& param) {
  return to_vector(mit_payload(type, param));
}

std::vector<std::uint8_t> CanPacketEncoder::pack_posvel_control_data(MotorType /*type*/,
                                                                     const POS_VELParam& param) {
  return to_vector(pos_vel_payload(param));
}

// ---- Decoder --------------------------------------------------------------

StateResult CanPacketDecoder::parse_motor_state_data(const Motor& motor,
                                                     const std::vector<std::uint8_t>& data) {
  return decode_state(motor.type, data.data(), data.size());
}

ParamResult CanPacketDecoder::parse_motor_param_data(const std::vector<std::uint8_t>& data) {
  return decode_param(data.data(), data.size());
}

}  // namespace kelvara::damiao_motor
