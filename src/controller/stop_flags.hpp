#pragma once

#include <atomic>

#include "kelvara/arm_state.hpp"

namespace kelvara::controller {

/// The flags that both threads poll, once a cycle and once a pass.
struct StopFlags {
  std::atomic<bool> exit_flag{false};            // both threads end
  std::atomic<bool> emergency_stop_flag{false};  // the control thread disables the motors and ends
  std::atomic<int> overloaded_joint{0};          // why: set before the flag, from 1

  /// A fault after which commands are refused until `recover()`. Set by the control thread.
  std::atomic<bool> faulted{false};
  std::atomic<StopReason> fault_reason{StopReason::kNone};  // why: set before the flag
  std::atomic<int> faulty_motor{0};                         // from 1; 0: none in particular

  std::atomic<bool> closing{false};  // `cleanup()` has begun: nothing starts again

  std::atomic<double> speed_override{1.0};  // of plans, 0 to 1

  enum class Recovery { kNone, kRequested, kRunning, kDone, kFailed };
  std::atomic<Recovery> recovery{Recovery::kNone};
};

}  // namespace kelvara::controller
