#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "kelvara/damiao_motor/dm_motor_control.hpp"

/// The wire format on fixed arrays, for the control cycle, which allocates nothing. The public
/// encoder and decoder are these functions with vectors around them.
namespace kelvara::damiao_motor {

inline constexpr std::size_t kPayloadSize = 8;
using Payload = std::array<std::uint8_t, kPayloadSize>;

/// Shared identifier of register traffic and refresh requests.
inline constexpr std::uint32_t kBroadcastId = 0x7FF;
/// Position/velocity commands go out on the motor's identifier plus this.
inline constexpr std::uint32_t kPosVelIdOffset = 0x100;

inline constexpr std::uint8_t kEnableCommand = 0xFC;
inline constexpr std::uint8_t kDisableCommand = 0xFD;
inline constexpr std::uint8_t kSetZeroCommand = 0xFE;
inline constexpr std::uint8_t kClearErrorCommand = 0xFB;

inline constexpr std::uint8_t kQueryCommand = 0x33;
inline constexpr std::uint8_t kWriteCommand = 0x55;
inline constexpr std::uint8_t kRefreshCommand = 0xCC;

Payload command_payload(std::uint8_t command);
Payload refresh_payload(unsigned id);
Payload query_payload(unsigned id, int rid);
Payload write_payload(unsigned id, int rid, std::uint32_t value);
Payload write_payload(unsigned id, int rid, float value);
Payload mit_payload(MotorType type, const MITParam& param);
Payload pos_vel_payload(const POS_VELParam& param);

StateResult decode_state(MotorType type, const std::uint8_t* data, std::size_t size);
ParamResult decode_param(const std::uint8_t* data, std::size_t size);

}  // namespace kelvara::damiao_motor
