#include "controller/control_thread.hpp"

#include "controller/sleep_until.hpp"

#include "description/timing.hpp"
#include "diagnostics/line.hpp"

namespace kelvara::controller {

void ControlThread::control_loop() {
  diagnostics::mark_time_critical_thread();
  use_realtime(realtime_);
  const motion::TimePoint start = motion::Clock::now();
  cycle_.begin(start);
  motion::TimePoint next_cycle = start + description::kControlPeriod;
  while (!flags_.exit_flag) {
    const motion::TimePoint now = motion::Clock::now();
    const auto late = now - (next_cycle - description::kControlPeriod);
    if (late >= description::kControlPeriod) {
      cycle_.count_late_cycle();
    }
    if (late > description::kMotorTimeoutTime) {
      cycle_.skip(late, now);
      next_cycle = now + description::kControlPeriod;
    }
    cycle_.run_cycle(now);
    if (flags_.exit_flag) {
      break;
    }
    sleep_until(next_cycle);
    next_cycle += description::kControlPeriod;
  }
  diagnostics::error_line() << "[control_loop] loop exited. exit_flag=" << flags_.exit_flag
                            << " emergency_stop_flag=" << flags_.emergency_stop_flag;
}

void ControlThread::join() {
  if (control_thread.joinable()) {
    control_thread.join();
  }
}

}  // namespace kelvara::controller
