#pragma once

#include <cstddef>
#include <cstdint>

namespace kelvara::can::socket {

/// Receives the frames that `Kelvara::recv_all` reads, those of other programs included.
class FrameObserver {
 public:
  /// Called for each frame before its device handles it, on the thread that drains the bus; must
  /// not block.
  /// @param can_id Identifier with the flag bits of <linux/can.h>.
  /// @param data   Valid during the call.
  /// @param size   Number of data bytes: at most 8, on CAN-FD at most 64.
  virtual void on_frame(std::uint32_t can_id, const std::uint8_t* data, std::size_t size) = 0;
  /// The same for a classic frame on CAN-FD, which no device handles.
  virtual void on_dropped_frame(std::uint32_t can_id, const std::uint8_t* data,
                                std::size_t size) = 0;

 protected:
  ~FrameObserver() = default;
};

}  // namespace kelvara::can::socket
