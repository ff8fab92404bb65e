#pragma once

#include <linux/can.h>

#include <cstdint>
#include <vector>

#include "kelvara/canbus/can_device_collection.hpp"
#include "kelvara/damiao_motor/dm_motor_control.hpp"
#include "kelvara/export.hpp"

namespace kelvara::damiao_motor {

/// How a motor device reads the frames that arrive for it.
enum class CallbackMode {
  STATE = 0,   // motor feedback
  PARAM = 1,   // register replies
  IGNORE = 2,  // not at all
};

/// The bus device of one motor: decodes the frames on its feedback identifier into its `Motor`
/// record, and prints one line on standard error whenever the motor's error state changes
/// ("[DM ERR] ..."; the first feedback of every motor counts as a change).
///
/// The callbacks run on the thread that drains the bus, which alone writes the record.
class KELVARA_EXPORT DMCANDevice : public canbus::CANDevice {
 public:
  /// @param motor      The record written; must outlive the device at a fixed address.
  /// @param aux_can_id The motors' shared identifier, 0x7FF.
  /// @param canfd      true: CAN-FD frames are expected, classic ones are refused with a warning.
  DMCANDevice(Motor& motor, unsigned int aux_can_id, bool canfd);
  ~DMCANDevice() override;

  void callback(const can_frame& frame) override;
  void callback(const canfd_frame& frame) override;

  /// The frame's data bytes, as many as its length field tells (at most what a frame can hold).
  std::vector<std::uint8_t> get_data_from_frame(const can_frame& frame);
  std::vector<std::uint8_t> get_data_from_frame(const canfd_frame& frame);
  /// A classic frame with this identifier and data; data beyond 8 bytes is cut off.
  can_frame create_can_frame(unsigned id, std::vector<std::uint8_t> data);
  /// A CAN-FD frame with bit-rate switch; data beyond 64 bytes is cut off.
  canfd_frame create_canfd_frame(unsigned id, std::vector<std::uint8_t> data);

  void set_callback_mode(CallbackMode mode) { callback_mode = mode; }
  CallbackMode get_callback_mode() const { return callback_mode; }
  const Motor& get_motor() const { return motor; }

 private:
  void update_state(const std::uint8_t* data, std::size_t size);
  void update_param(const std::uint8_t* data, std::size_t size);

  Motor& motor;
  CallbackMode callback_mode = CallbackMode::STATE;
};

}  // namespace kelvara::damiao_motor
