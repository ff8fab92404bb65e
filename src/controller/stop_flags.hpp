#pragma once

#include <atomic>

namespace kelvara::controller {

/// The flags that both threads poll, once a cycle and once a pass.
struct StopFlags {
  std::atomic<bool> exit_flag{false};            // both threads end
  std::atomic<bool> emergency_stop_flag{false};  // the control thread disables the motors and ends
};

}  // namespace kelvara::controller
