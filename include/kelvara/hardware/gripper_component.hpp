#pragma once

#include <memory>

#include "kelvara/canbus/can_socket.hpp"
#include "kelvara/damiao_motor/dm_motor_control.hpp"
#include "kelvara/damiao_motor/dm_motor_device.hpp"
#include "kelvara/damiao_motor/dm_motor_device_collection.hpp"
#include "kelvara/export.hpp"

namespace kelvara::can::socket {

/// The gripper's motor on the shared socket; its device owns the motor record. Each command sends
/// one MIT frame; before `init_motor_device` it sends nothing.
class KELVARA_EXPORT GripperComponent : public damiao_motor::DMDeviceCollection {
 public:
  explicit GripperComponent(canbus::CANSocket& socket);
  ~GripperComponent() override;

  /// Creates the motor and registers its device; a further call replaces both. Sends nothing.
  void init_motor_device(damiao_motor::MotorType type, unsigned can_id, unsigned master_id,
                         bool canfd);

  /// Commands a normalised opening.
  /// @param x     1 = open, 0 = closed; the motor angle is linear in it, also outside [0, 1].
  /// @param kp,kd MIT gains in N·m/rad and N·m·s/rad, clamped to [0, 500] and [0, 5].
  void set_position(double x, double kp, double kd);
  void open(double kp, double kd);
  void close(double kp, double kd);
  /// Commands a jaw distance.
  /// @param d Metres, [0, 0.085]. For any other value, NaN too, prints an error line on standard
  ///          error and commands the fixed motor angle -1.0 rad.
  void set_distance(double d, double kp, double kd);
  /// Commands a feed-forward torque (N·m) with zero gains.
  void set_tau(double tau);

  /// The normalised opening at a motor angle (rad); the inverse of the map of `set_position`.
  double opening_at_angle(double motor_angle) const;
  /// Deprecated alias of `opening_at_angle`.
  double position_at_angle(double motor_angle) const { return opening_at_angle(motor_angle); }

 private:
  std::shared_ptr<damiao_motor::DMCANDevice> device_;  // empty until initialised
};

}  // namespace kelvara::can::socket
