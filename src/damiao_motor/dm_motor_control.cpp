#include "kelvara/damiao_motor/dm_motor_control.hpp"

#include <cstring>

#include "damiao_motor/motor_protocol.hpp"

namespace kelvara::damiao_motor {
namespace {

std::vector<std::uint8_t> to_vector(const Payload& payload) {
  return {payload.begin(), payload.end()};
}

CANPacket packet(std::uint32_t can_id, const Payload& payload) {
  return {can_id, to_vector(payload)};
}

}  // namespace

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
  return packet(kBroadcastId, mode_payload(motor.can_id, mode));
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
  return to_vector(mode_payload(id, mode));
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
