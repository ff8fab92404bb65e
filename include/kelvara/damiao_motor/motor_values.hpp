#pragma once

#include <cstdint>
#include <vector>

/// The values that are exchanged with a motor.
namespace kelvara::damiao_motor {

/// The motors' registers that the library uses.
enum Register : int {
  kAccelerationRegister = 4,
  kDecelerationRegister = 5,
  kTimeoutRegister = 9,  // in units of 50 microseconds, 0 = off
  kControlModeRegister = 10,
  kKpAprRegister = 27,
};

/// Values of the control-mode register.
enum ControlMode : int { MIT_MODE = 1, POS_VEL_MODE = 2 };

/// State codes of a motor's feedback; others report an error (see `motor_error_name`).
inline constexpr int kDisabledCode = 0;
inline constexpr int kEnabledCode = 1;

/// A frame to send: identifier and data bytes.
struct CANPacket {
  std::uint32_t can_id;
  std::vector<std::uint8_t> data;
};

/// One MIT-mode command, motor side.
struct MITParam {
  double kp;   // N·m/rad, clamped to [0, 500]
  double kd;   // N·m·s/rad, clamped to [0, 5]
  double q;    // target position, rad
  double dq;   // target velocity, rad/s
  double tau;  // feed-forward torque, N·m
};

/// One position/velocity-mode command, motor side. Its eight bytes are the frame's data.
struct POS_VELParam {
  float q;   // target position, rad
  float dq;  // velocity limit, rad/s
};

/// A decoded feedback frame, motor side.
struct StateResult {
  double position;  // rad
  double velocity;  // rad/s
  double torque;    // N·m
  std::int32_t t_mos;
  std::int32_t t_rotor;
  std::int32_t feedback_id;
  std::int32_t error_code;
  bool valid;
};

/// A decoded register reply.
struct ParamResult {
  std::int32_t rid;
  double value;
  std::uint8_t command;  // 0x33 query reply, 0x55 write echo
  bool valid;
};

}  // namespace kelvara::damiao_motor
