#include "simulation/simulated_motor/motor_frames.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace kelvara::simulation {
namespace {

constexpr double kMaxKp = 500.0;  // N·m/rad
constexpr double kMaxKd = 5.0;    // N·m·s/rad

std::uint32_t little_endian(const std::uint8_t* bytes) {
  return bytes[0] | bytes[1] << 8U | bytes[2] << 16U | static_cast<std::uint32_t>(bytes[3]) << 24U;
}

/// A field of `bits` bits over [low, high].
double unpack(unsigned raw, double low, double high, unsigned bits) {
  return low + (high - low) * raw / ((1U << bits) - 1U);
}

unsigned pack(double value, double limit, unsigned bits) {
  const double share = (std::clamp(value, -limit, limit) + limit) / (2.0 * limit);
  return static_cast<unsigned>(std::lround(share * ((1U << bits) - 1U)));
}

std::uint8_t byte(unsigned value) { return static_cast<std::uint8_t>(value & 0xFFU); }

canfd_frame make_frame(unsigned id, const std::array<std::uint8_t, 8>& bytes) {
  canfd_frame frame{};
  frame.can_id = id;
  frame.len = 8;
  std::copy(bytes.begin(), bytes.end(), frame.data);
  return frame;
}

}  // namespace

MitCommand decode_mit(const canfd_frame& frame, const MotorModel& model) {
  const std::uint8_t* data = frame.data;
  MitCommand command;
  command.position = unpack(data[0] << 8U | data[1], -model.pmax, model.pmax, 16);
  command.velocity = unpack(data[2] << 4U | data[3] >> 4U, -model.vmax, model.vmax, 12);
  command.kp = unpack((data[3] & 0x0FU) << 8U | data[4], 0.0, kMaxKp, 12);
  command.kd = unpack(data[5] << 4U | data[6] >> 4U, 0.0, kMaxKd, 12);
  command.torque = unpack((data[6] & 0x0FU) << 8U | data[7], -model.tmax, model.tmax, 12);
  return command;
}

PositionVelocityCommand decode_position_velocity(const canfd_frame& frame) {
  return {float_of(little_endian(frame.data)), float_of(little_endian(frame.data + 4))};
}

std::optional<std::uint8_t> decode_special(const canfd_frame& frame) {
  const bool special =
      std::all_of(frame.data, frame.data + 7, [](std::uint8_t value) { return value == 0xFF; });
  return special ? std::optional(frame.data[7]) : std::nullopt;
}

SharedCommand decode_shared(const canfd_frame& frame) {
  const std::uint8_t* data = frame.data;
  return {static_cast<unsigned>(data[0] | data[1] << 8U), data[2], data[3],
          little_endian(data + 4)};
}

canfd_frame encode_feedback(const Feedback& feedback, const MotorModel& model, unsigned master_id) {
  const unsigned position = pack(feedback.position, model.pmax, 16);
  const unsigned velocity = pack(feedback.velocity, model.vmax, 12);
  const unsigned torque = pack(feedback.torque, model.tmax, 12);
  return make_frame(master_id, {byte(feedback.state << 4U | (feedback.can_id & 0x0FU)),
                                byte(position >> 8U), byte(position), byte(velocity >> 4U),
                                byte((velocity & 0x0FU) << 4U | torque >> 8U), byte(torque),
                                byte(feedback.mos_temperature), byte(feedback.rotor_temperature)});
}

canfd_frame encode_register_reply(const SharedCommand& reply, unsigned master_id) {
  return make_frame(master_id, {byte(reply.can_id), byte(reply.can_id >> 8U), reply.command,
                                reply.rid, byte(reply.value), byte(reply.value >> 8U),
                                byte(reply.value >> 16U), byte(reply.value >> 24U)});
}

std::uint32_t bits_of(float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

float float_of(std::uint32_t bits) {
  float value = 0.0F;
  std::memcpy(&value, &bits, sizeof(value));
  return value;
}

}  // namespace kelvara::simulation
