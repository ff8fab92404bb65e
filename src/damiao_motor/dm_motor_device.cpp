#include "kelvara/damiao_motor/dm_motor_device.hpp"

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "damiao_motor/can_frames.hpp"
#include "damiao_motor/motor_protocol.hpp"

#include "diagnostics/line.hpp"

namespace kelvara::damiao_motor {
namespace {

/// Stores the code as the motor's last one; true when it differs from the one before (`old_code`).
bool exchange_error_code(unsigned master_id, int new_code, int& old_code) {
  // The key is the identifier alone: controllers on different buses share entries, and their
  // threads share the map. With one controller the lock is never contended.
  static std::mutex mutex;
  // Never destroyed: a process may exit while its control threads are running.
  static auto& last_error_code = *new std::unordered_map<unsigned, int>;
  const std::lock_guard<std::mutex> lock(mutex);
  const auto [entry, inserted] = last_error_code.try_emplace(master_id, new_code);
  old_code = inserted ? 0 : entry->second;
  entry->second = new_code;
  return inserted || old_code != new_code;
}

void maybe_report_motor_error(const Motor& motor, const StateResult& state) {
  int old_code = 0;
  if (!exchange_error_code(motor.master_id, state.error_code, old_code)) {
    return;
  }
  diagnostics::error_line() << "[DM ERR] recv_id=0x" << std::hex << motor.master_id << std::dec
                            << " feedback_id=" << state.feedback_id << std::hex << " ERR: 0x"
                            << old_code << " -> 0x" << state.error_code << std::dec << " ("
                            << motor_error_name(state.error_code) << ") t_mos=" << state.t_mos
                            << " t_rotor=" << state.t_rotor;
}

const Motor& require_motor(const std::shared_ptr<Motor>& motor) {
  if (!motor) {
    throw std::invalid_argument("DMCANDevice: motor is null");
  }
  return *motor;
}

/// A pointer without ownership.
std::shared_ptr<Motor> refer_to(Motor& motor) { return {std::shared_ptr<Motor>(), &motor}; }

}  // namespace

DMCANDevice::DMCANDevice(std::shared_ptr<Motor> motor_record, unsigned int aux_id, bool canfd)
    : CANDevice(require_motor(motor_record).can_id, motor_record->master_id, aux_id, canfd),
      motor(std::move(motor_record)) {}

DMCANDevice::DMCANDevice(Motor& motor_record, unsigned int aux_id, bool canfd)
    : DMCANDevice(refer_to(motor_record), aux_id, canfd) {}

DMCANDevice::~DMCANDevice() = default;

void DMCANDevice::callback(const can_frame& frame) {
  if (canfd_enabled) {
    diagnostics::error_line() << "WARNING: WRONG CALLBACK FUNCTION";
    return;
  }
  const std::size_t size = std::min<std::size_t>(frame.can_dlc, CAN_MAX_DLEN);
  if (callback_mode == CallbackMode::STATE) {
    if (size >= kPayloadSize && frame.can_id == motor->master_id) {
      update_state(frame.data, size);
    }
  } else if (callback_mode == CallbackMode::PARAM) {
    update_param(frame.data, size);
  }
}

void DMCANDevice::callback(const canfd_frame& frame) {
  if (!canfd_enabled) {
    diagnostics::error_line() << "WARNING: CANFD MODE NOT ENABLED";
    return;
  }
  if (frame.can_id != motor->master_id) {
    diagnostics::error_line() << "WARNING: CANFD FRAME ID DOES NOT MATCH MOTOR ID";
    return;
  }
  const std::size_t size = std::min<std::size_t>(frame.len, CANFD_MAX_DLEN);
  if (callback_mode == CallbackMode::STATE) {
    update_state(frame.data, size);
  } else if (callback_mode == CallbackMode::PARAM) {
    update_param(frame.data, size);
  }
}

void DMCANDevice::update_state(const std::uint8_t* data, std::size_t size) {
  const StateResult state = decode_state(motor->type, data, size);
  if (!state.valid) {
    return;
  }
  motor->update_state(state.position, state.velocity, state.torque, state.t_mos, state.t_rotor,
                      state.feedback_id, state.error_code);
  maybe_report_motor_error(*motor, state);
}

void DMCANDevice::update_param(const std::uint8_t* data, std::size_t size) {
  const ParamResult param = decode_param(data, size);
  if (param.valid && param.command == kQueryCommand) {
    motor->set_temp_param(param.rid, param.value);
  }
}

std::vector<std::uint8_t> DMCANDevice::get_data_from_frame(const can_frame& frame) {
  return {frame.data, frame.data + std::min<std::size_t>(frame.can_dlc, CAN_MAX_DLEN)};
}

std::vector<std::uint8_t> DMCANDevice::get_data_from_frame(const canfd_frame& frame) {
  return {frame.data, frame.data + std::min<std::size_t>(frame.len, CANFD_MAX_DLEN)};
}

can_frame DMCANDevice::create_can_frame(unsigned id, std::vector<std::uint8_t> data) {
  return make_can_frame(id, data.data(), data.size());
}

canfd_frame DMCANDevice::create_canfd_frame(unsigned id, std::vector<std::uint8_t> data) {
  return make_canfd_frame(id, data.data(), data.size());
}

}  // namespace kelvara::damiao_motor
