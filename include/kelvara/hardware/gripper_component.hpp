#pragma once

#include <memory>

#include "kelvara/canbus/can_socket.hpp"
#include "kelvara/damiao_motor/dm_motor_control.hpp"
#include "kelvara/damiao_motor/dm_motor_device.hpp"
#include "kelvara/damiao_motor/dm_motor_device_collection.hpp"
#include "kelvara/export.hpp"

namespace kelvara::can::socket {

/// The gripper's one motor on the shared socket. Every command is one MIT frame; before
/// `init_motor_device` every command does nothing.
class KELVARA_EXPORT GripperComponent : public damiao_motor::DMDeviceCollection {
 public:
  explicit GripperComponent(canbus::CANSocket& socket);
  ~GripperComponent() override;

  /// Creates (or replaces) the motor and registers its device. Sends nothing.
  void init_motor_device(damiao_motor::MotorType type, unsigned can_id, unsigned master_id,
                         bool canfd);

  /// Commands a normalised opening: 1 = open, 0 = closed, linear and extrapolated outside.
  /// @param kp,kd MIT gains, N·m/rad and N·m·s/rad.
  void set_position(double x, double kp, double kd);
  void open(double kp, double kd);
  void close(double kp, double kd);
  /// Commands a jaw distance.
  /// @param d Metres, 0 to 0.085; outside: an error line on standard error, and the jaws are sent
  ///          to the fixed motor angle -1.0 rad.
  void set_distance(double d, double kp, double kd);
  /// Commands a torque alone (N·m).
  void set_tau(double tau);

  /// The normalised opening at a motor angle (rad); the inverse of `set_position`'s map.
  double position_at_angle(double motor_angle) const;

 private:
  std::unique_ptr<damiao_motor::Motor> motor_;
  std::shared_ptr<damiao_motor::DMCANDevice> device_;  // empty until initialised
};

}  // namespace kelvara::can::socket
