#pragma once

#include <linux/can.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <optional>

#include "kelvara/damiao_motor/dm_motor_control.hpp"

/// Observes the position commands of MIT frames on the bus: how far each goes from the one before.
/// Only what follows a marker counts, a frame to the gripper with a given gain, which the
/// controller sends itself: frames of other programs may overtake its own.
class StepWatch {
 public:
  struct Result {
    double largest_step = 0.0;  // rad
    long steps = 0;
  };

  /// Counts the steps after the next gripper command with the gain `marker`, N·m/rad.
  void begin_after(double marker) {
    const std::lock_guard<std::mutex> lock(mutex_);
    marker_ = static_cast<int>(std::lround(marker / kelvara::damiao_motor::kMaxKp * kLargestGain));
    counting_ = false;
    result_ = {};
  }
  /// Ends the count.
  Result end() {
    const std::lock_guard<std::mutex> lock(mutex_);
    marker_.reset();
    counting_ = false;
    return result_;
  }

  void on_frame(const canfd_frame& frame) {
    const std::lock_guard<std::mutex> lock(mutex_);
    end_at_stall();
    const bool to_motor = frame.can_id >= 1 && frame.can_id <= kGripperId;
    if (!to_motor || is_state_command(frame)) {
      return;
    }
    if (frame.can_id < kGripperId) {
      step(last_[frame.can_id - 1], frame);
    } else if (marker_ && std::abs(gain(frame) - *marker_) <= 1) {
      marker_.reset();
      counting_ = true;
    }
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr canid_t kGripperId = 7;
  static constexpr double kLargestGain = 4095.0;  // of the frame's twelve bits
  static constexpr std::chrono::milliseconds kLongestStall{100};

  /// Frames may have been lost while the caller got no processor time.
  void end_at_stall() {
    const Clock::time_point now = Clock::now();
    counting_ = counting_ && now - last_frame_ < kLongestStall;
    last_frame_ = now;
  }

  /// Enabling, disabling, clearing errors.
  static bool is_state_command(const canfd_frame& frame) {
    return std::all_of(frame.data, frame.data + 7, [](std::uint8_t byte) { return byte == 0xFF; });
  }

  static int gain(const canfd_frame& frame) { return (frame.data[3] & 0xF) << 8 | frame.data[4]; }

  void step(std::optional<double>& last, const canfd_frame& frame) {
    if (gain(frame) == 0) {  // a torque alone
      last.reset();
      return;
    }
    const auto raw = static_cast<std::uint16_t>(frame.data[0] << 8U | frame.data[1]);
    const double position = kelvara::damiao_motor::uint_to_double(raw, -12.5, 12.5, 16);
    const double step = std::abs(position - last.value_or(position));
    last = position;
    if (counting_) {
      ++result_.steps;
      result_.largest_step = std::max(result_.largest_step, step);
    }
  }

  std::mutex mutex_;
  bool counting_ = false;
  std::optional<int> marker_;  // as in the frame; counting begins with it
  Clock::time_point last_frame_{};
  std::array<std::optional<double>, 6> last_;
  Result result_;
};
