#pragma once

#include <linux/can.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace kelvara::damiao_motor {

/// Builds a classic frame; truncates the data to 8 bytes.
inline can_frame make_can_frame(std::uint32_t id, const std::uint8_t* data, std::size_t size) {
  can_frame frame{};
  frame.can_id = id;
  frame.can_dlc = static_cast<std::uint8_t>(std::min<std::size_t>(size, CAN_MAX_DLEN));
  std::copy_n(data, frame.can_dlc, frame.data);
  return frame;
}

/// Builds a CAN-FD frame with bit-rate switch; truncates the data to 64 bytes.
inline canfd_frame make_canfd_frame(std::uint32_t id, const std::uint8_t* data, std::size_t size) {
  canfd_frame frame{};
  frame.can_id = id;
  frame.len = static_cast<std::uint8_t>(std::min<std::size_t>(size, CANFD_MAX_DLEN));
  frame.flags = CANFD_BRS;
  std::copy_n(data, frame.len, frame.data);
  return frame;
}

}  // namespace kelvara::damiao_motor
