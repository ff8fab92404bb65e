#include "kelvara/damiao_motor/dm_motor_device_collection.hpp"

#include <utility>

#include "damiao_motor/can_frames.hpp"
#include "damiao_motor/motor_protocol.hpp"

namespace kelvara::damiao_motor {
namespace {

// Motors that set_timeout_all() writes to: six joints and a gripper.
constexpr std::size_t kMaxMotorsWithTimeout = 7;

template <typename Value>
void write_param_each(DMDeviceCollection& collection, int rid, const std::vector<Value>& values) {
  for (std::size_t k = 0; k < values.size(); ++k) {
    collection.write_param_one(static_cast<int>(k), rid, values[k]);
  }
}

/// A frame's content; unlike a CANPacket it needs no memory from the heap, so that an arm can be
/// stopped after memory has run out.
struct Content {
  std::uint32_t can_id;
  Payload payload;
};

auto command(std::uint8_t code) {
  return [code](const Motor& motor) { return Content{motor.can_id, command_payload(code)}; };
}

auto mode_switch(int mode) {
  return [mode](const Motor& motor) {
    return Content{kBroadcastId, mode_payload(motor.can_id, mode)};
  };
}

auto query(int rid) {
  return [rid](const Motor& motor) {
    return Content{kBroadcastId, query_payload(motor.can_id, rid)};
  };
}

template <typename Value>
auto write(int rid, Value value) {
  return [rid, value](const Motor& motor) {
    return Content{kBroadcastId, write_payload(motor.can_id, rid, value)};
  };
}

}  // namespace

DMDeviceCollection::DMDeviceCollection(canbus::CANSocket& socket)
    : socket_(socket), device_collection_(socket, [this] { rebuild_motor_devices(); }) {}

DMDeviceCollection::~DMDeviceCollection() = default;

void DMDeviceCollection::rebuild_motor_devices() {
  motor_devices_.clear();
  for (const auto& [response_id, device] : device_collection_.get_devices()) {
    if (auto motor_device = std::dynamic_pointer_cast<DMCANDevice>(device)) {
      motor_devices_.push_back(std::move(motor_device));
    }
  }
}

template <typename MakeContent>
void DMDeviceCollection::send_to_all(MakeContent make_content) {
  for (const auto& device : motor_devices_) {
    const Content content = make_content(device->get_motor());
    send(content.can_id, content.payload);
  }
}

template <typename MakeContent>
void DMDeviceCollection::send_to_one(int index, MakeContent make_content) {
  if (const Motor* motor = find_motor(index)) {
    const Content content = make_content(*motor);
    send(content.can_id, content.payload);
  }
}

void DMDeviceCollection::send(std::uint32_t can_id, const Payload& payload) {
  write_frame(can_id, payload.data(), payload.size());
}

void DMDeviceCollection::write_frame(std::uint32_t can_id, const std::uint8_t* data,
                                     std::size_t size) {
  if (socket_.is_canfd_enabled()) {
    socket_.write_canfd_frame(make_canfd_frame(can_id, data, size));
  } else {
    socket_.write_can_frame(make_can_frame(can_id, data, size));
  }
}

// The public signature takes the pointer by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void DMDeviceCollection::send_command_to_device(std::shared_ptr<DMCANDevice> device,
                                                const CANPacket& packet) {
  if (device) {
    write_frame(packet.can_id, packet.data.data(), packet.data.size());
  }
}

std::vector<std::shared_ptr<DMCANDevice>> DMDeviceCollection::get_dm_devices() const {
  return motor_devices_;
}

std::vector<Motor> DMDeviceCollection::get_motors() const {
  std::vector<Motor> motors;
  motors.reserve(motor_devices_.size());
  for (const auto& device : motor_devices_) {
    motors.push_back(device->get_motor());
  }
  return motors;
}

const Motor* DMDeviceCollection::find_motor(int index) const {
  const auto k = static_cast<std::size_t>(index);  // a negative index is out of range, too
  return k < motor_devices_.size() ? &motor_devices_[k]->get_motor() : nullptr;
}

void DMDeviceCollection::set_callback_mode_all(CallbackMode mode) {
  for (const auto& device : motor_devices_) {
    device->set_callback_mode(mode);
  }
}

// ---- Set-up commands ------------------------------------------------------

void DMDeviceCollection::enable_all() { send_to_all(command(kEnableCommand)); }

void DMDeviceCollection::enable_one(int index) { send_to_one(index, command(kEnableCommand)); }

void DMDeviceCollection::disable_all() { send_to_all(command(kDisableCommand)); }

void DMDeviceCollection::disable_one(int index) { send_to_one(index, command(kDisableCommand)); }

void DMDeviceCollection::set_zero_all() { send_to_all(command(kSetZeroCommand)); }

void DMDeviceCollection::clrErr_all() { send_to_all(command(kClearErrorCommand)); }

void DMDeviceCollection::clear_error_one(int index) {
  send_to_one(index, command(kClearErrorCommand));
}

void DMDeviceCollection::switch_all_motors_mode(int mode) { send_to_all(mode_switch(mode)); }

void DMDeviceCollection::switch_mode_one(int index, int mode) {
  send_to_one(index, mode_switch(mode));
}

void DMDeviceCollection::query_param_all(int rid) { send_to_all(query(rid)); }

void DMDeviceCollection::query_param_one(int index, int rid) { send_to_one(index, query(rid)); }

void DMDeviceCollection::query_acc_all() { query_param_all(kAccelerationRegister); }
void DMDeviceCollection::query_dec_all() { query_param_all(kDecelerationRegister); }
void DMDeviceCollection::query_kp_apr_all() { query_param_all(kKpAprRegister); }

void DMDeviceCollection::write_param_one(int index, int rid, unsigned value) {
  send_to_one(index, write(rid, value));
}

void DMDeviceCollection::write_param_one(int index, int rid, float value) {
  send_to_one(index, write(rid, value));
}

void DMDeviceCollection::write_param_all(int rid, const std::vector<float>& values) {
  write_param_each(*this, rid, values);
}

void DMDeviceCollection::write_param_all(int rid, const std::vector<unsigned>& values) {
  write_param_each(*this, rid, values);
}

void DMDeviceCollection::set_acc_one(int index, float value) {
  write_param_one(index, kAccelerationRegister, value);
}

void DMDeviceCollection::set_dec_one(int index, float value) {
  write_param_one(index, kDecelerationRegister, value);
}

void DMDeviceCollection::set_kp_apr_one(int index, float value) {
  write_param_one(index, kKpAprRegister, value);
}

void DMDeviceCollection::set_acc_all(const std::vector<float>& values) {
  write_param_all(kAccelerationRegister, values);
}

void DMDeviceCollection::set_dec_all(const std::vector<float>& values) {
  write_param_all(kDecelerationRegister, values);
}

void DMDeviceCollection::set_kp_apr_all(const std::vector<float>& values) {
  write_param_all(kKpAprRegister, values);
}

void DMDeviceCollection::set_timeout_all(unsigned timeout) {
  write_param_all(kTimeoutRegister, std::vector<unsigned>(kMaxMotorsWithTimeout, timeout));
}

// ---- Commands of the control cycle, which allocate nothing ----------------

void DMDeviceCollection::refresh_all() {
  for (const auto& device : motor_devices_) {
    send(kBroadcastId, refresh_payload(device->get_motor().can_id));
  }
}

void DMDeviceCollection::refresh_one(int index) {
  if (const Motor* motor = find_motor(index)) {
    send(kBroadcastId, refresh_payload(motor->can_id));
  }
}

void DMDeviceCollection::mit_control_one(int index, const MITParam& param) {
  if (const Motor* motor = find_motor(index)) {
    send(motor->can_id, mit_payload(motor->type, param));
  }
}

void DMDeviceCollection::mit_control_all(const std::vector<MITParam>& params) {
  for (std::size_t k = 0; k < params.size(); ++k) {
    mit_control_one(static_cast<int>(k), params[k]);
  }
}

void DMDeviceCollection::pos_vel_control_one(int index, const POS_VELParam& param) {
  if (const Motor* motor = find_motor(index)) {
    send(motor->can_id + kPosVelIdOffset, pos_vel_payload(param));
  }
}

void DMDeviceCollection::pos_vel_control_all(const std::vector<POS_VELParam>& params) {
  for (std::size_t k = 0; k < params.size(); ++k) {
    pos_vel_control_one(static_cast<int>(k), params[k]);
  }
}

}  // namespace kelvara::damiao_motor
