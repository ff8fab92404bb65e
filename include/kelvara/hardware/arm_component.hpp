#pragma once

#include <vector>

#include "kelvara/canbus/can_socket.hpp"
#include "kelvara/damiao_motor/dm_motor_control.hpp"
#include "kelvara/damiao_motor/dm_motor_device_collection.hpp"
#include "kelvara/export.hpp"

namespace kelvara::can::socket {

/// The arm's joint motors on the shared socket; their devices own the motor records.
class KELVARA_EXPORT ArmComponent : public damiao_motor::DMDeviceCollection {
 public:
  explicit ArmComponent(canbus::CANSocket& socket);
  ~ArmComponent() override;

  /// Creates the motors and registers their devices; sends nothing. A further call adds motors; a
  /// new motor replaces a registered one with the same feedback identifier.
  /// @param types      Model of each motor, joint 1 first.
  /// @param can_ids    Command identifiers, at least as many as types.
  /// @param master_ids Feedback identifiers, at least as many as types.
  /// @param canfd      true: the motors reply with CAN-FD frames.
  /// @throws std::invalid_argument when an identifier list is too short; nothing has changed then.
  void init_motor_devices(std::vector<damiao_motor::MotorType> types, std::vector<unsigned> can_ids,
                          std::vector<unsigned> master_ids, bool canfd);
};

}  // namespace kelvara::can::socket
