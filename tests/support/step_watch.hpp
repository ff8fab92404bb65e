#pragma once

#include <linux/can.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <mutex>
#include <optional>

#include "kelvara/damiao_motor/dm_motor_control.hpp"
#include "support/test_bus.hpp"

/// Observes the position commands of MIT frames on the bus. A marker frame, sent on the bus as
/// well, separates those before it from those after it: it sets the bound of the steps from one
/// frame to the next, or ends their observation.
class StepWatch {
 public:
  struct Result {
    double largest_step = 0.0;   // rad
    double largest_share = 0.0;  // of its bound
    long steps = 0;
  };

  /// The commands from here on make steps of `bound` rad at most.
  static void mark_bound(const BusPeer& peer, double bound) {
    mark(peer, static_cast<std::uint32_t>(bound * 1e6));
  }
  /// Steps do not count from here on.
  static void mark_unobserved(const BusPeer& peer) { mark(peer, kUnobserved); }

  void on_frame(const canfd_frame& frame) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (frame.can_id == kMarkerId) {
      using namespace kelvara::damiao_motor;
      bound_ = uint8s_to_uint32(frame.data[3], frame.data[2], frame.data[1], frame.data[0]);
    } else if (frame.can_id >= 1 && frame.can_id <= last_.size() && !is_state_command(frame)) {
      step(last_[frame.can_id - 1], frame);
    }
  }

  Result result() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return result_;
  }

 private:
  static constexpr canid_t kMarkerId = 0x7E0;  // no motor's
  static constexpr std::uint32_t kUnobserved = std::numeric_limits<std::uint32_t>::max();

  /// @param bound µrad, or kUnobserved.
  static void mark(const BusPeer& peer, std::uint32_t bound) {
    std::array<char, 9> data{};
    std::snprintf(data.data(), data.size(), "%08X", bound);
    peer.send({kMarkerId, data.data()});
  }

  /// Enabling, disabling, clearing errors.
  static bool is_state_command(const canfd_frame& frame) {
    return std::all_of(frame.data, frame.data + 7, [](std::uint8_t byte) { return byte == 0xFF; });
  }

  void step(std::optional<double>& last, const canfd_frame& frame) {
    const unsigned stiffness = (frame.data[3] & 0xFU) << 8U | frame.data[4];
    if (stiffness == 0) {  // a torque alone
      last.reset();
      return;
    }
    const auto raw = static_cast<std::uint16_t>(frame.data[0] << 8U | frame.data[1]);
    const double position = kelvara::damiao_motor::uint_to_double(raw, -12.5, 12.5, 16);
    const double step = std::abs(position - last.value_or(position));
    last = position;
    if (bound_ != kUnobserved) {
      ++result_.steps;
      result_.largest_step = std::max(result_.largest_step, step);
      result_.largest_share = std::max(result_.largest_share, step / (bound_ * 1e-6));
    }
  }

  mutable std::mutex mutex_;
  std::uint32_t bound_ = kUnobserved;
  std::array<std::optional<double>, 6> last_;
  Result result_;
};
