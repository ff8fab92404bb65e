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

/// The command side of a group of motors on one socket. Each call encodes its frames and writes
/// them at once, without pause or retry, and does not wait for replies: those are decoded when the
/// bus is drained. The socket's mode decides between classic and CAN-FD frames. Write failures are
/// not reported.
///
/// `*_all` acts on every motor, `*_one` on the motor at `index`, counted from 0 in ascending order
/// of feedback identifier; an index out of range does nothing. The motors are those in the registry
/// (`get_device_collection`), which may also be changed from outside. Takes no lock: change the
/// registry only while no other thread uses the collection.
class KELVARA_EXPORT DMDeviceCollection {
 public:
  /// @param socket The bus; must outlive the collection.
  explicit DMDeviceCollection(canbus::CANSocket& socket);
  virtual ~DMDeviceCollection();

  DMDeviceCollection(const DMDeviceCollection&) = delete;
  DMDeviceCollection& operator=(const DMDeviceCollection&) = delete;

  /// Writes one packet in a frame of the socket's mode. Does nothing when `device` is null.
  void send_command_to_device(std::shared_ptr<DMCANDevice> device, const CANPacket& packet);
  /// A copy of the list of motor devices, in index order.
  std::vector<std::shared_ptr<DMCANDevice>> get_dm_devices() const;
  /// Copies of the motor records in index order.
  std::vector<Motor> get_motors() const;
  /// The motor record at `index`, or null when the index is out of range. Valid until the registry
  /// changes; read it on the thread that drains the bus.
  const Motor* find_motor(int index) const;
  /// Sets how every device interprets its frames; sends nothing.
  void set_callback_mode_all(CallbackMode mode);

  // None of these allocates memory.
  void enable_all();
  void enable_one(int index);
  void disable_all();
  void disable_one(int index);
  void set_zero_all();
  /// Clear errors; a motor with an error takes no other command.
  void clrErr_all();
  void clear_error_one(int index);
  /// Requests one feedback frame of each motor.
  void refresh_all();
  void refresh_one(int index);

  /// Requests a register's value; `Motor::get_param` returns it once the reply has been decoded.
  void query_param_all(int rid);
  void query_param_one(int index, int rid);
  void query_acc_all();
  void query_dec_all();
  void query_kp_apr_all();

  void write_param_one(int index, int rid, unsigned value);
  void write_param_one(int index, int rid, float value);
  /// Writes values[k] to motor k; extra values or motors are skipped.
  void write_param_all(int rid, const std::vector<float>& values);
  void write_param_all(int rid, const std::vector<unsigned>& values);
  void set_acc_one(int index, float value);
  void set_dec_one(int index, float value);
  void set_kp_apr_one(int index, float value);
  void set_acc_all(const std::vector<float>& values);
  void set_dec_all(const std::vector<float>& values);
  void set_kp_apr_all(const std::vector<float>& values);
  /// Writes the communication time-out of the first seven motors, in units of 50 µs; 0 = off.
  void set_timeout_all(unsigned timeout);
  /// Write the control mode, a `ControlMode` value.
  void switch_all_motors_mode(int mode);
  void switch_mode_one(int index, int mode);

  void mit_control_one(int index, const MITParam& param);
  void mit_control_all(const std::vector<MITParam>& params);
  void pos_vel_control_one(int index, const POS_VELParam& param);
  void pos_vel_control_all(const std::vector<POS_VELParam>& params);

  canbus::CANDeviceCollection& get_device_collection() { return device_collection_; }
  const canbus::CANDeviceCollection& get_device_collection() const { return device_collection_; }

 private:
  void rebuild_motor_devices();
  template <typename MakeContent>
  void send_to_all(MakeContent make_content);
  template <typename MakeContent>
  void send_to_one(int index, MakeContent make_content);
  void send(std::uint32_t can_id, const std::array<std::uint8_t, 8>& payload);
  void write_frame(std::uint32_t can_id, const std::uint8_t* data, std::size_t size);

  canbus::CANSocket& socket_;
  std::vector<std::shared_ptr<DMCANDevice>> motor_devices_;  // those of the registry, in key order
  canbus::CANDeviceCollection device_collection_;            // rebuilds the list at each change
};

}  // namespace kelvara::damiao_motor
