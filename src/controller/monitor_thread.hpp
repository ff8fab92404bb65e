#pragma once

#include <thread>

#include "controller/state_buffer.hpp"
#include "controller/stop_flags.hpp"

namespace kelvara::controller {

/// Owns the monitor thread, which examines the published torques every 20 ms until `exit_flag` is
/// set. It sets `emergency_stop_flag` when a joint's average torque has been too high for too long.
class MonitorThread {
 public:
  /// @param state,flags Must outlive this.
  MonitorThread(const StateBuffer& state, StopFlags& flags) : state_(state), flags_(flags) {}

  void start() { monitor_thread = std::thread(&MonitorThread::monitor_motor_torque, this); }
  /// Waits until the thread has ended, if it was started. May be called again.
  void join();
  /// The thread's body.
  void monitor_motor_torque();

 private:
  const StateBuffer& state_;
  StopFlags& flags_;
  std::thread monitor_thread;
};

}  // namespace kelvara::controller
