#include "simulation/simulated_motor/simulated_motor.hpp"

#include <algorithm>
#include <cmath>

namespace kelvara::simulation {
namespace {

constexpr unsigned kSharedId = 0x7FF;
constexpr unsigned kPositionVelocityOffset = 0x100;
constexpr unsigned kCommunicationLost = 0xD;

constexpr std::uint8_t kQuery = 0x33;
constexpr std::uint8_t kWrite = 0x55;
constexpr std::uint8_t kRefresh = 0xCC;

constexpr std::uint8_t kClearError = 0xFB;
constexpr std::uint8_t kEnable = 0xFC;
constexpr std::uint8_t kDisable = 0xFD;
constexpr std::uint8_t kSetZero = 0xFE;

constexpr double kAmbientDegrees = 26.0;  // °C
constexpr double kHeatingTimeS = 600.0;
constexpr double kHeatAtLimit = 60.0;  // K, in the long run at the torque limit

}  // namespace

SimulatedMotor::SimulatedMotor(const MotorModel& model, unsigned can_id, unsigned master_id)
    : model_(model), can_id_(can_id), master_id_(master_id), registers_(model, can_id, master_id) {}

// ---- Frames ---------------------------------------------------------------

std::optional<canfd_frame> SimulatedMotor::handle(const canfd_frame& frame) {
  if (silent_ || frame.len < 8) {
    return std::nullopt;
  }
  const std::optional<canfd_frame> reply = execute(frame);
  if (reply && replies_to_drop_ > 0) {
    --replies_to_drop_;
    return std::nullopt;
  }
  return reply;
}

std::optional<canfd_frame> SimulatedMotor::execute(const canfd_frame& frame) {
  if (frame.can_id == kSharedId) {
    return execute_shared(frame);
  }
  if (frame.can_id == can_id_) {
    return execute_own(frame);
  }
  if (frame.can_id == can_id_ + kPositionVelocityOffset &&
      control_mode() == kPositionVelocityMode) {
    return execute_position_velocity(frame);
  }
  return std::nullopt;
}

canfd_frame SimulatedMotor::execute_own(const canfd_frame& frame) {
  silence_s_ = 0.0;
  const std::optional<std::uint8_t> special = decode_special(frame);
  const bool executed = special && execute_special(*special);
  if (!executed && control_mode() == kMitMode && enabled_) {
    mit_ = decode_mit(frame, model_);
  }
  return feedback();
}

canfd_frame SimulatedMotor::execute_position_velocity(const canfd_frame& frame) {
  silence_s_ = 0.0;
  const auto [position, velocity_limit] = decode_position_velocity(frame);
  if (enabled_ && std::isfinite(position) && std::isfinite(velocity_limit)) {
    position_velocity_.command(position, velocity_limit);
  }
  return feedback();
}

std::optional<canfd_frame> SimulatedMotor::execute_shared(const canfd_frame& frame) {
  SharedCommand command = decode_shared(frame);
  // A refresh carries only the low byte of the identifier.
  if (command.command == kRefresh && (command.can_id & 0xFFU) == (can_id_ & 0xFFU)) {
    silence_s_ = 0.0;
    return feedback();
  }
  if (command.can_id != can_id_ || (command.command != kQuery && command.command != kWrite)) {
    return std::nullopt;
  }
  silence_s_ = 0.0;
  if (command.command == kWrite) {
    write_register(command.rid, command.value);
  }
  command.value = registers_.read(command.rid);
  return encode_register_reply(command, master_id_);
}

bool SimulatedMotor::execute_special(std::uint8_t command) {
  switch (command) {
    case kEnable:
      enable();
      return true;
    case kDisable:
      disable();
      return true;
    case kSetZero:
      zero_offset_ = shaft_position_;
      hold_here();
      return true;
    case kClearError:
      error_ = 0;
      return true;
    default:
      return false;
  }
}

void SimulatedMotor::write_register(std::uint8_t rid, std::uint32_t value) {
  const unsigned mode_before = control_mode();
  registers_.write(rid, value);
  if (control_mode() != mode_before) {
    clear_commands();
  }
}

canfd_frame SimulatedMotor::feedback() const {
  const unsigned state = error_ != 0 ? error_ : (enabled_ ? 1U : 0U);
  return encode_feedback({can_id_, state, position(), velocity_, torque_,
                          static_cast<unsigned>(kAmbientDegrees + 4.0 + heat_ / 2.0),
                          static_cast<unsigned>(kAmbientDegrees + 2.0 + heat_)},
                         model_, master_id_);
}

// ---- States ---------------------------------------------------------------

void SimulatedMotor::enable() {
  if (enabled_ || error_ != 0) {
    return;  // an error must be cleared first
  }
  enabled_ = true;
  clear_commands();
}

/// Drops every command, so that nothing moves until the next one.
void SimulatedMotor::clear_commands() {
  mit_ = {};
  position_velocity_.clear_integral();
  hold_here();
}

void SimulatedMotor::disable() {
  enabled_ = false;
  torque_ = 0.0;
}

void SimulatedMotor::raise_error(unsigned code) {
  disable();
  error_ = code;
}

// ---- Motion ---------------------------------------------------------------

double SimulatedMotor::advance(double dt_s, double position, double velocity) {
  shaft_position_ = position;
  velocity_ = velocity;
  silence_s_ += dt_s;
  const double timeout_s = registers_.timeout_s();
  if (enabled_ && timeout_s > 0.0 && silence_s_ > timeout_s) {
    raise_error(kCommunicationLost);
  }
  torque_ = 0.0;
  if (enabled_) {
    const double wanted =
        control_mode() == kMitMode
            ? mit_torque()
            : position_velocity_.step(dt_s, this->position(), velocity_, model_, registers_);
    torque_ = std::clamp(wanted, -model_.tmax, model_.tmax);
  }
  warm_up(dt_s);
  return torque_;
}

double SimulatedMotor::mit_torque() const {
  return mit_.kp * (mit_.position - position()) + mit_.kd * (mit_.velocity - velocity_) +
         mit_.torque;
}

/// Copper losses against cooling.
void SimulatedMotor::warm_up(double dt_s) {
  const double load = torque_ / model_.tmax;
  heat_ += dt_s / kHeatingTimeS * (kHeatAtLimit * load * load - heat_);
}

}  // namespace kelvara::simulation
