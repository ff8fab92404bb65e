#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "kelvara/damiao_motor/dm_motor_control.hpp"

/// The motors' wire format: the data bytes of every frame, sent and received. Works on fixed arrays
/// and allocates nothing; the public encoder and decoder wrap these functions in vectors.
/// Stateless: any thread.
namespace kelvara::damiao_motor {

inline constexpr std::size_t kPayloadSize = 8;
using Payload = std::array<std::uint8_t, kPayloadSize>;

// ---- Identifiers ----
/// Register traffic and refresh requests of all motors.
inline constexpr std::uint32_t kBroadcastId = 0x7FF;
/// Position/velocity commands go out on the motor's identifier plus this offset.
inline constexpr std::uint32_t kPosVelIdOffset = 0x100;

// ---- Last byte of a one-byte command ----
inline constexpr std::uint8_t kEnableCommand = 0xFC;
inline constexpr std::uint8_t kDisableCommand = 0xFD;
inline constexpr std::uint8_t kSetZeroCommand = 0xFE;
inline constexpr std::uint8_t kClearErrorCommand = 0xFB;

// ---- Third byte of a frame on the broadcast identifier, and of a register reply ----
inline constexpr std::uint8_t kQueryCommand = 0x33;
inline constexpr std::uint8_t kWriteCommand = 0x55;
inline constexpr std::uint8_t kRefreshCommand = 0xCC;

// ---- Commands; `id` is the motor's command identifier ----
Payload command_payload(std::uint8_t command);
/// Requests one feedback frame; carries only the low byte of `id`.
Payload refresh_payload(unsigned id);
Payload query_payload(unsigned id, int rid);
Payload write_payload(unsigned id, int rid, std::uint32_t value);
/// Writes the 32 bits of the float.
Payload write_payload(unsigned id, int rid, float value);
/// Writes the control-mode register; `mode` is a `ControlMode` value.
Payload mode_payload(unsigned id, int mode);
Payload mit_payload(MotorType type, const MITParam& param);
Payload pos_vel_payload(const POS_VELParam& param);

// ---- Replies; see `CanPacketDecoder` ----
StateResult decode_state(MotorType type, const std::uint8_t* data, std::size_t size);
ParamResult decode_param(const std::uint8_t* data, std::size_t size);

}  // namespace kelvara::damiao_motor
