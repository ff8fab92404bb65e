#pragma once

#include <linux/can.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "kelvara/canbus/can_device_collection.hpp"
#include "kelvara/damiao_motor/dm_motor_control.hpp"
#include "kelvara/export.hpp"

namespace kelvara::damiao_motor {

/// How a motor device interprets the frames on its feedback identifier.
enum class CallbackMode {
  STATE = 0,   // as motor feedback
  PARAM = 1,   // as register replies
  IGNORE = 2,  // drops them
};

/// The bus device of one motor: decodes the frames on its feedback identifier into its `Motor`
/// record, and prints one line ("[DM ERR] ...") on standard error whenever the motor's error state
/// changes. The first feedback of a motor counts as a change.
///
/// The callbacks run on the thread that drains the bus; only they write the record.
class KELVARA_EXPORT DMCANDevice : public canbus::CANDevice {
 public:
  /// Shares ownership of the motor record.
  /// @param motor      The record that the callbacks write.
  /// @param aux_can_id The motors' shared identifier, 0x7FF.
  /// @param canfd      true: handles CAN-FD frames; false: classic ones. Frames of the other kind
  ///                   are dropped with a warning on standard error.
  /// @throws std::invalid_argument when `motor` is null.
  DMCANDevice(std::shared_ptr<Motor> motor, unsigned int aux_can_id, bool canfd);
  /// Refers to a motor record of the caller's, which must outlive the device at a fixed address.
  DMCANDevice(Motor& motor, unsigned int aux_can_id, bool canfd);
  ~DMCANDevice() override;

  void callback(const can_frame& frame) override;
  void callback(const canfd_frame& frame) override;

  /// The frame's data bytes: as many as its length field gives, at most the frame's capacity.
  std::vector<std::uint8_t> get_data_from_frame(const can_frame& frame);
  std::vector<std::uint8_t> get_data_from_frame(const canfd_frame& frame);
  /// A classic frame with this identifier and data, truncated to 8 bytes.
  can_frame create_can_frame(unsigned id, std::vector<std::uint8_t> data);
  /// A CAN-FD frame with bit-rate switch, its data truncated to 64 bytes.
  canfd_frame create_canfd_frame(unsigned id, std::vector<std::uint8_t> data);

  void set_callback_mode(CallbackMode mode) { callback_mode = mode; }
  CallbackMode get_callback_mode() const { return callback_mode; }
  const Motor& get_motor() const { return *motor; }

 private:
  void update_state(const std::uint8_t* data, std::size_t size);
  void update_param(const std::uint8_t* data, std::size_t size);

  std::shared_ptr<Motor> motor;  // not null; owns nothing when the record is the caller's
  CallbackMode callback_mode = CallbackMode::STATE;
};

}  // namespace kelvara::damiao_motor
