#pragma once

#include <atomic>

#include "kelvara/motion/motion_handle.hpp"

namespace kelvara {

/// What handles share with the controller. The control thread and the threads that replace commands
/// write it, any thread reads it; lock-free.
class MotionHandle::Status {
 public:
  /// Ends the motion; only the first call counts.
  void end(MotionOutcome outcome) {
    int running = kRunning;
    if (outcome == MotionOutcome::kDone) {
      progress = 1.0;
    }
    outcome_.compare_exchange_strong(running, static_cast<int>(outcome));
  }
  bool is_done() const { return outcome_ != kRunning; }
  /// Once the motion has ended.
  MotionOutcome outcome() const { return static_cast<MotionOutcome>(outcome_.load()); }

  /// Of the motion's own time, 0 to 1.
  std::atomic<double> progress{0.0};
  /// Largest distance of a measured joint angle to the motion's end, rad.
  std::atomic<double> distance{1e9};

 private:
  static constexpr int kRunning = -1;
  std::atomic<int> outcome_{kRunning};
};

}  // namespace kelvara
