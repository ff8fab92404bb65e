#pragma once

#include <thread>

#include "controller/control_cycle.hpp"
#include "controller/realtime.hpp"
#include "controller/stop_flags.hpp"

namespace kelvara::controller {

/// Owns the control thread, which runs cycles on a fixed 2.5 ms schedule until `exit_flag` is set.
class ControlThread {
 public:
  /// @param cycle,flags Must outlive this.
  ControlThread(ControlCycle& cycle, StopFlags& flags, const RealtimeSettings& realtime)
      : cycle_(cycle), flags_(flags), realtime_(realtime) {}

  void start() { control_thread = std::thread(&ControlThread::control_loop, this); }
  /// Waits until the thread has ended, if it was started. May be called again.
  void join();
  /// The thread's body. An overrun of up to 50 ms is caught up: the cycles after it follow without
  /// sleep. After a longer one, the motors have disabled themselves; the schedule starts again.
  void control_loop();

 private:
  ControlCycle& cycle_;
  StopFlags& flags_;
  const RealtimeSettings realtime_;
  std::thread control_thread;
};

}  // namespace kelvara::controller
