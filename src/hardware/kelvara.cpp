#include "kelvara/hardware/kelvara.hpp"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace kelvara::can::socket {
namespace {

// Bounds one drain on a bus that never falls silent: after kMinFramesPerDrain frames (several
// cycles' worth of replies) it stops once kMaxDrainTimeouts receive time-outs have elapsed, or
// kMinDrainBudget if that is longer.
constexpr int kMinFramesPerDrain = 64;
constexpr int kMaxDrainTimeouts = 10;
constexpr std::chrono::microseconds kMinDrainBudget{1000};

}  // namespace

using damiao_motor::DMDeviceCollection;

Kelvara::Kelvara(const std::string& interface, bool canfd)
    : interface_name(interface),
      canfd_enabled(canfd),
      socket_(std::make_unique<canbus::CANSocket>(interface, canfd)),
      arm_(std::make_unique<ArmComponent>(*socket_)),
      gripper_(std::make_unique<GripperComponent>(*socket_)),
      device_collection(std::make_unique<canbus::CANDeviceCollection>(*socket_)) {}

Kelvara::~Kelvara() = default;

void Kelvara::init_arm_motors(const std::vector<damiao_motor::MotorType>& types,
                              const std::vector<unsigned>& can_ids,
                              const std::vector<unsigned>& master_ids) {
  arm_->init_motor_devices(types, can_ids, master_ids, canfd_enabled);
  register_dm_device_collection(*arm_);
}

void Kelvara::init_gripper_motor(damiao_motor::MotorType type, unsigned can_id,
                                 unsigned master_id) {
  gripper_->init_motor_device(type, can_id, master_id, canfd_enabled);
  register_dm_device_collection(*gripper_);
}

void Kelvara::register_dm_device_collection(DMDeviceCollection& collection) {
  for (const auto& [response_id, device] : collection.get_device_collection().get_devices()) {
    device_collection->add_device(device);
  }
  collections.push_back(&collection);
}

void Kelvara::recv_all(int timeout_us) {
  const auto budget =
      std::max(kMaxDrainTimeouts * std::chrono::microseconds(timeout_us), kMinDrainBudget);
  const auto end = std::chrono::steady_clock::now() + budget;
  for (int frames = 1; socket_->is_data_available(timeout_us) && receive_one(); ++frames) {
    if (frames >= kMinFramesPerDrain && std::chrono::steady_clock::now() >= end) {
      return;
    }
  }
}

/// Reads one frame and handles it if it is of the socket's own kind. False when the read failed.
bool Kelvara::receive_one() {
  canfd_frame frame{};
  const ssize_t size = socket_->read_raw_frame(&frame, sizeof(frame));
  if (size == CANFD_MTU && canfd_enabled) {
    dispatch(frame, frame.len);
  } else if (size == CAN_MTU && !canfd_enabled) {
    can_frame classic{};
    std::memcpy(&classic, &frame, sizeof(classic));
    dispatch(classic, classic.can_dlc);
  } else if (size == CAN_MTU && frame_observer_ != nullptr) {
    frame_observer_->on_dropped_frame(frame.can_id, frame.data,
                                      std::min<std::size_t>(frame.len, CAN_MAX_DLEN));
  }
  return size == CANFD_MTU || size == CAN_MTU;
}

template <typename Frame>
void Kelvara::dispatch(Frame& frame, std::size_t size) {
  if (frame_observer_ != nullptr) {
    frame_observer_->on_frame(frame.can_id, frame.data, std::min(size, sizeof(frame.data)));
  }
  device_collection->dispatch_frame_callback(frame);
}

template <typename Operation, typename... Arguments>
void Kelvara::forward(Operation operation, const Arguments&... arguments) {
  for (DMDeviceCollection* collection : collections) {
    (collection->*operation)(arguments...);
  }
}

void Kelvara::enable_all() { forward(&DMDeviceCollection::enable_all); }
void Kelvara::disable_all() { forward(&DMDeviceCollection::disable_all); }
void Kelvara::set_zero_all() { forward(&DMDeviceCollection::set_zero_all); }
void Kelvara::refresh_all() { forward(&DMDeviceCollection::refresh_all); }
void Kelvara::query_acc_all() { forward(&DMDeviceCollection::query_acc_all); }
void Kelvara::query_dec_all() { forward(&DMDeviceCollection::query_dec_all); }
void Kelvara::query_kp_apr_all() { forward(&DMDeviceCollection::query_kp_apr_all); }

void Kelvara::set_timeout_all(unsigned timeout) {
  forward(&DMDeviceCollection::set_timeout_all, timeout);
}

void Kelvara::switch_all_motors_mode(int mode) {
  forward(&DMDeviceCollection::switch_all_motors_mode, mode);
}

void Kelvara::query_param_all(int rid) { forward(&DMDeviceCollection::query_param_all, rid); }

void Kelvara::set_acc_all(const std::vector<float>& values) {
  forward(&DMDeviceCollection::set_acc_all, values);
}

void Kelvara::set_dec_all(const std::vector<float>& values) {
  forward(&DMDeviceCollection::set_dec_all, values);
}

void Kelvara::set_kp_apr_all(const std::vector<float>& values) {
  forward(&DMDeviceCollection::set_kp_apr_all, values);
}

void Kelvara::set_callback_mode_all(damiao_motor::CallbackMode mode) {
  forward(&DMDeviceCollection::set_callback_mode_all, mode);
}

}  // namespace kelvara::can::socket
