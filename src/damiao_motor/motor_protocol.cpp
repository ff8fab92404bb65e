#include "damiao_motor/motor_protocol.hpp"

#include <cstring>
#include <limits>

#include "diagnostics/line.hpp"

namespace kelvara::damiao_motor {
namespace {

constexpr std::uint8_t low_byte(std::uint32_t value) {
  return static_cast<std::uint8_t>(value & 0xFFU);
}
constexpr std::uint8_t second_byte(std::uint32_t value) { return low_byte(value >> 8U); }

const LimitParam& limits_of(MotorType type) {
  return MOTOR_LIMIT_PARAMS[static_cast<std::size_t>(type)];
}

}  // namespace

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

Payload mode_payload(unsigned id, int mode) {
  // Only the low byte of the mode is sent; the other three bytes of the value are zero.
  const std::uint32_t value = low_byte(static_cast<unsigned>(mode));
  return write_payload(id, kControlModeRegister, value);
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
    diagnostics::error_line() << "Warning: Skipping motor state data less than 8 bytes";
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
    diagnostics::error_line() << "WARNING: INVALID PARAM DATA";
    return kInvalid;
  }
  const int rid = data[3];
  const double value =
      is_in_ranges(rid)
          ? static_cast<double>(uint8s_to_uint32(data[4], data[5], data[6], data[7]))
          : static_cast<double>(uint8s_to_float({data[4], data[5], data[6], data[7]}));
  return {rid, value, command, true};
}

}  // namespace kelvara::damiao_motor
