#include "controller/control_thread.hpp"

#include "controller/diagnostics.hpp"
#include "controller/sleep_until.hpp"

#include "description/timing.hpp"

namespace kelvara::controller {

void ControlThread::control_loop() {
  const motion::TimePoint start = motion::Clock::now();
  cycle_.begin(start);
  motion::TimePoint next_cycle = start + description::kControlPeriod;
  while (!flags_.exit_flag) {
    cycle_.run_cycle(motion::Clock::now());
    if (flags_.exit_flag) {
      break;
    }
    sleep_until(next_cycle);
    next_cycle += description::kControlPeriod;
  }
  error_line() << "[control_loop] loop exited. exit_flag=" << flags_.exit_flag
               << " emergency_stop_flag=" << flags_.emergency_stop_flag;
}

void ControlThread::join() {
  if (control_thread.joinable()) {
    control_thread.join();
  }
}

}  // namespace kelvara::controller
