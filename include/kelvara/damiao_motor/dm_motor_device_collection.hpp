#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "kelvara/canbus/can_device_collection.hpp"
#include "kelvara/canbus/can_socket.hpp"
#include "kelvara/damiao_motor/dm_motor_control.hpp"
#include "kelvara/damiao_motor/dm_motor_device.hpp"
#include "kelvara/export.hpp"

namespace kelvara::damiao_motor {

/// The command side of a group of motors on one socket: turns each request into frames and writes
/// them at once, without pause, retry or waiting for replies; replies arrive when the bus is
/// drained. Frames are classic or CAN-FD as the socket was opened. Write failures are not reported.
///
/// `*_all` acts on every motor, `*_one` on the motor at `index`, counted from 0 in ascending order
/// of feedback identifier; an index that names no motor does nothing. Takes no lock: one thread at
/// a time.
class KELVARA_EXPORT DMDeviceCollection {
 public:
  /// @param socket The bus; must outlive the collection.
  explicit DMDeviceCollection(canbus::CANSocket& socket);
  virtual ~DMDeviceCollection();

  DMDeviceCollection(const DMDeviceCollection&) = delete;
  DMDeviceCollection& operator=(const DMDeviceCollection&) = delete;

  /// Writes one packet, framed as the socket was opened; without a device nothing is sent.
  void send_command_to_device(std::shared_ptr<DMCANDevice> device, const CANPacket& packet);
  /// The motor devices in index order; a fresh list on every call.
  std::vector<std::shared_ptr<DMCANDevice>> get_dm_devices() const;
  /// Copies of the motor records in index order.
  std::vector<Motor> get_motors() const;
  /// The record at `index` without a copy, null when there is none. Same thread as the drain.
  const Motor* find_motor(int index) const;
  /// Sets how every device reads its frames; sends nothing.
  void set_callback_mode_all(CallbackMode mode);

  void enable_all();
  void disable_all();
  void set_zero_all();
  void clrErr_all();
  /// Asks for feedback.
  void refresh_all();
  void refresh_one(int index);

  /// Asks for a register; see `Motor::get_param` for the answer.
  void query_param_all(int rid);
  void query_param_one(int index, int rid);
  void query_acc_all();
  void query_dec_all();
  void query_kp_apr_all();

  void write_param_one(int index, int rid, unsigned value);
  void write_param_one(int index, int rid, float value);
  /// Motor k gets values[k]; extra values or motors are skipped.
  void write_param_all(int rid, const std::vector<float>& values);
  void write_param_all(int rid, const std::vector<unsigned>& values);
  void set_acc_one(int index, float value);
  void set_dec_one(int index, float value);
  void set_kp_apr_one(int index, float value);
  void set_acc_all(const std::vector<float>& values);
  void set_dec_all(const std::vector<float>& values);
  void set_kp_apr_all(const std::vector<float>& values);
  /// Writes the communication time-out of the first seven motors, in units of 50 µs, 0 = off.
  void set_timeout_all(unsigned timeout);
  /// Writes the control mode, a `ControlMode` value.
  void switch_all_motors_mode(int mode);

  void mit_control_one(int index, const MITParam& param);
  void mit_control_all(const std::vector<MITParam>& params);
  void pos_vel_control_one(int index, const POS_VELParam& param);
  void pos_vel_control_all(const std::vector<POS_VELParam>& params);

  canbus::CANDeviceCollection& get_device_collection() { return device_collection_; }
  const canbus::CANDeviceCollection& get_device_collection() const { return device_collection_; }

 private:
  template <typename Action>
  void for_each_device(Action action) const;
  DMCANDevice* find_device(int index) const;
  template <typename MakePacket>
  void send_to_all(MakePacket make_packet);
  void send(const CANPacket& packet);
  void send(std::uint32_t can_id, const std::array<std::uint8_t, 8>& payload);
  void write_frame(std::uint32_t can_id, const std::uint8_t* data, std::size_t size);

  canbus::CANSocket& socket_;
  canbus::CANDeviceCollection device_collection_;
};

}  // namespace kelvara::damiao_motor
