#include "simulation/simulated_motor/simulated_motor.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace kelvara::simulation {
namespace {

constexpr unsigned kSharedId = 0x7FF;
constexpr unsigned kPositionVelocityOffset = 0x100;
constexpr unsigned kMitMode = 1;
constexpr unsigned kPositionVelocityMode = 2;
constexpr unsigned kCommunicationLost = 0xD;

constexpr std::uint8_t kQuery = 0x33;
constexpr std::uint8_t kWrite = 0x55;
constexpr std::uint8_t kRefresh = 0xCC;

constexpr std::uint8_t kAcceleration = 4;
constexpr std::uint8_t kDeceleration = 5;
constexpr std::uint8_t kMasterId = 7;
constexpr std::uint8_t kMotorId = 8;
constexpr std::uint8_t kTimeout = 9;
constexpr std::uint8_t kControlMode = 10;
constexpr std::uint8_t kPositionGain = 27;
constexpr double kTimeoutUnitS = 50e-6;

constexpr double kIntegralTimeS = 0.08;  // of the velocity loop
constexpr double kAmbientDegrees = 26.0;

std::uint32_t bits_of(float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

std::uint32_t little_endian(const std::uint8_t* bytes) {
  return bytes[0] | bytes[1] << 8U | bytes[2] << 16U | static_cast<std::uint32_t>(bytes[3]) << 24U;
}

float float_of(std::uint32_t bits) {
  float value = 0.0F;
  std::memcpy(&value, &bits, sizeof(value));
  return value;
}

float little_endian_float(const std::uint8_t* bytes) { return float_of(little_endian(bytes)); }

/// A field of `bits` bits over [low, high].
double unpack(unsigned raw, double low, double high, unsigned bits) {
  return low + (high - low) * raw / ((1U << bits) - 1U);
}

unsigned pack(double value, double limit, unsigned bits) {
  const double share = (std::clamp(value, -limit, limit) + limit) / (2.0 * limit);
  return static_cast<unsigned>(std::lround(share * ((1U << bits) - 1U)));
}

std::uint8_t byte(unsigned value) { return static_cast<std::uint8_t>(value & 0xFFU); }

}  // namespace

SimulatedMotor::SimulatedMotor(const MotorModel& model, unsigned can_id, unsigned master_id)
    : model_(model),
      can_id_(can_id),
      master_id_(master_id),
      registers_{{kAcceleration, bits_of(2.0F)},
                 {kDeceleration, bits_of(2.0F)},
                 {kMasterId, master_id},
                 {kMotorId, can_id},
                 {kTimeout, 0},
                 {kControlMode, kMitMode},
                 {21, bits_of(static_cast<float>(model.pmax))},
                 {22, bits_of(static_cast<float>(model.vmax))},
                 {23, bits_of(static_cast<float>(model.tmax))},
                 {kPositionGain, bits_of(10.0F)}} {}

// ---- Frames ---------------------------------------------------------------

std::optional<canfd_frame> SimulatedMotor::handle(const canfd_frame& frame) {
  if (silent_ || frame.len < 8) {
    return std::nullopt;
  }
  const std::optional<canfd_frame> reply = obey(frame);
  if (reply && replies_to_drop_ > 0) {
    --replies_to_drop_;
    return std::nullopt;
  }
  return reply;
}

std::optional<canfd_frame> SimulatedMotor::obey(const canfd_frame& frame) {
  const std::uint8_t* data = frame.data;
  if (frame.can_id == kSharedId) {
    return handle_shared(frame);
  }
  if (frame.can_id == can_id_) {
    unheard_s_ = 0.0;
    const bool special =
        std::all_of(data, data + 7, [](std::uint8_t value) { return value == 0xFF; }) &&
        obey_special(data[7]);
    if (!special && control_mode() == kMitMode && enabled_) {
      mit_.position = unpack(data[0] << 8U | data[1], -model_.pmax, model_.pmax, 16);
      mit_.velocity = unpack(data[2] << 4U | data[3] >> 4U, -model_.vmax, model_.vmax, 12);
      mit_.kp = unpack((data[3] & 0x0FU) << 8U | data[4], 0.0, 500.0, 12);
      mit_.kd = unpack(data[5] << 4U | data[6] >> 4U, 0.0, 5.0, 12);
      mit_.torque = unpack((data[6] & 0x0FU) << 8U | data[7], -model_.tmax, model_.tmax, 12);
    }
    return feedback();
  }
  if (frame.can_id == can_id_ + kPositionVelocityOffset &&
      control_mode() == kPositionVelocityMode) {
    unheard_s_ = 0.0;
    const float position = little_endian_float(data);
    const float velocity_limit = little_endian_float(data + 4);
    if (enabled_ && std::isfinite(position) && std::isfinite(velocity_limit)) {
      target_position_ = position;
      velocity_limit_ = std::abs(velocity_limit);
    }
    return feedback();
  }
  return std::nullopt;
}

std::optional<canfd_frame> SimulatedMotor::handle_shared(const canfd_frame& frame) {
  const std::uint8_t* data = frame.data;
  const std::uint8_t command = data[2];
  const unsigned addressed = data[0] | data[1] << 8U;
  // A refresh carries the low byte of the identifier alone.
  if (command == kRefresh && data[0] == byte(can_id_)) {
    unheard_s_ = 0.0;
    return feedback();
  }
  if (addressed != can_id_ || (command != kQuery && command != kWrite)) {
    return std::nullopt;
  }
  unheard_s_ = 0.0;
  if (command == kWrite) {
    write_register(data[3], little_endian(data + 4));
  }
  return register_reply(command, data[3]);
}

bool SimulatedMotor::obey_special(std::uint8_t command) {
  switch (command) {
    case 0xFC:
      enable();
      return true;
    case 0xFD:
      disable();
      return true;
    case 0xFE:
      zero_offset_ = shaft_position_;
      hold_here();
      return true;
    case 0xFB:
      error_ = 0;
      return true;
    default:
      return false;
  }
}

void SimulatedMotor::enable() {
  if (enabled_ || error_ != 0) {
    return;  // an error must be cleared first
  }
  enabled_ = true;
  start_afresh();
}

/// Forgets every command, so that nothing moves until the next one.
void SimulatedMotor::start_afresh() {
  mit_ = {};
  integral_ = 0.0;
  hold_here();
}

void SimulatedMotor::hold_here() {
  profile_position_ = target_position_ = shaft_position_ - zero_offset_;
  profile_velocity_ = 0.0;
  velocity_limit_ = 0.0;
}

void SimulatedMotor::disable() {
  enabled_ = false;
  torque_ = 0.0;
}

void SimulatedMotor::raise_error(unsigned code) {
  disable();
  error_ = code;
}

void SimulatedMotor::write_register(std::uint8_t rid, std::uint32_t value) {
  const bool known_mode = value == kMitMode || value == kPositionVelocityMode;
  const bool fixed = rid >= 21 && rid <= 23;  // the ranges belong to the model
  const bool tuning = rid == kAcceleration || rid == kDeceleration || rid == kPositionGain;
  if (registers_read_only_ || fixed || (rid == kControlMode && !known_mode) ||
      (tuning && !std::isfinite(float_of(value)))) {
    return;
  }
  const bool other_mode = rid == kControlMode && value != control_mode();
  registers_[rid] = value;
  if (other_mode) {
    start_afresh();
  }
}

canfd_frame SimulatedMotor::register_reply(std::uint8_t command, std::uint8_t rid) const {
  const auto entry = registers_.find(rid);
  const std::uint32_t value = entry == registers_.end() ? 0U : entry->second;
  canfd_frame reply{};
  reply.can_id = master_id_;
  reply.len = 8;
  const std::uint8_t bytes[8] = {
      byte(can_id_),     byte(can_id_ >> 8U), command,           rid, byte(value),
      byte(value >> 8U), byte(value >> 16U),  byte(value >> 24U)};
  std::copy_n(bytes, 8, reply.data);
  return reply;
}

canfd_frame SimulatedMotor::feedback() const {
  const unsigned state = error_ != 0 ? error_ : (enabled_ ? 1U : 0U);
  const unsigned position = pack(shaft_position_ - zero_offset_, model_.pmax, 16);
  const unsigned velocity = pack(velocity_, model_.vmax, 12);
  const unsigned torque = pack(torque_, model_.tmax, 12);
  canfd_frame reply{};
  reply.can_id = master_id_;
  reply.len = 8;
  const std::uint8_t bytes[8] = {byte(state << 4U | (can_id_ & 0x0FU)),
                                 byte(position >> 8U),
                                 byte(position),
                                 byte(velocity >> 4U),
                                 byte((velocity & 0x0FU) << 4U | torque >> 8U),
                                 byte(torque),
                                 byte(static_cast<unsigned>(kAmbientDegrees + 4.0 + heat_ / 2.0)),
                                 byte(static_cast<unsigned>(kAmbientDegrees + 2.0 + heat_))};
  std::copy_n(bytes, 8, reply.data);
  return reply;
}

float SimulatedMotor::register_float(std::uint8_t rid) const {
  return float_of(registers_.at(rid));
}

// ---- Motion ---------------------------------------------------------------

double SimulatedMotor::advance(double dt_s, double position, double velocity) {
  shaft_position_ = position;
  velocity_ = velocity;
  unheard_s_ += dt_s;
  const double timeout_s = registers_.at(kTimeout) * kTimeoutUnitS;
  if (enabled_ && timeout_s > 0.0 && unheard_s_ > timeout_s) {
    raise_error(kCommunicationLost);
  }
  torque_ = 0.0;
  if (enabled_) {
    const double wanted =
        control_mode() == kMitMode ? mit_torque() : position_velocity_torque(dt_s);
    torque_ = std::clamp(wanted, -model_.tmax, model_.tmax);
  }
  // Copper losses against cooling, with a time constant of ten minutes.
  const double load = torque_ / model_.tmax;
  heat_ += dt_s / 600.0 * (60.0 * load * load - heat_);
  return torque_;
}

double SimulatedMotor::mit_torque() const {
  const double position = shaft_position_ - zero_offset_;
  return mit_.kp * (mit_.position - position) + mit_.kd * (mit_.velocity - velocity_) + mit_.torque;
}

/// Moves the profile towards the target: a trapezoid of velocity, re-planned at every step.
void SimulatedMotor::step_profile(double dt_s) {
  const double acceleration = std::abs(register_float(kAcceleration));
  const double deceleration = std::abs(register_float(kDeceleration));
  const double distance = target_position_ - profile_position_;
  // The speed from which the target can still be met, and not passed within this step.
  const double speed =
      std::min({velocity_limit_, std::sqrt(2.0 * deceleration * std::abs(distance)),
                std::abs(distance) / dt_s});
  const double wanted = std::copysign(speed, distance);
  const bool slowing = std::abs(wanted) < std::abs(profile_velocity_);
  const double step = (slowing ? deceleration : acceleration) * dt_s;
  profile_velocity_ += std::clamp(wanted - profile_velocity_, -step, step);
  profile_position_ += profile_velocity_ * dt_s;
}

/// Position loop around a velocity loop with integral; the integral carries the weight of the arm
/// and stops growing where the torque is at its limit.
double SimulatedMotor::position_velocity_torque(double dt_s) {
  step_profile(dt_s);
  const double position = shaft_position_ - zero_offset_;
  const double velocity_error = profile_velocity_ +
                                register_float(kPositionGain) * (profile_position_ - position) -
                                velocity_;
  const double proportional = model_.velocity_gain * velocity_error;
  const double torque = proportional + integral_;
  const bool saturated = std::abs(torque) >= model_.tmax && torque * velocity_error > 0.0;
  if (!saturated) {
    integral_ += proportional * dt_s / kIntegralTimeS;
  }
  return torque;
}

}  // namespace kelvara::simulation
