#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <thread>

#include <kelvara/arm_controller.hpp>

/// Ctrl-C (SIGINT) and SIGTERM in the examples: the arm comes to rest before its motors are
/// disabled. Call `catch_signals` first, and wait with the functions below.
namespace interrupt {

using Clock = std::chrono::steady_clock;

inline std::atomic<int> received_signal{0};

/// From now on a signal only sets a flag, which the waits check.
inline void catch_signals() {
  for (const int signal : {SIGINT, SIGTERM}) {
    std::signal(signal, [](int number) { received_signal = number; });
  }
}

/// Brakes the arm, disables the motors and ends the program with status 128 + signal: 130 after
/// Ctrl-C.
[[noreturn]] inline void stop(ArmController& arm) {
  std::cerr << "interrupted: the arm stops, then it sinks\n";
  if (arm.state().reason == kelvara::StopReason::kNone) {  // after a fault, it takes no commands
    arm.stop().wait_settled(/*tolerance=*/0.01, /*seconds=*/2.0);
  }
  arm.cleanup();
  std::exit(128 + received_signal);  // NOLINT(concurrency-mt-unsafe): no other thread is left
}

/// Waits until `time`, or stops the arm and ends the program at a signal.
inline void wait_until(ArmController& arm, Clock::time_point time) {
  while (received_signal == 0 && Clock::now() < time) {
    std::this_thread::sleep_until(std::min(time, Clock::now() + std::chrono::milliseconds(10)));
  }
  if (received_signal != 0) {
    stop(arm);
  }
}

inline void wait(ArmController& arm, double seconds) {
  wait_until(arm, Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                     std::chrono::duration<double>(seconds)));
}

/// Waits for the end of a motion, or stops the arm and ends the program at a signal.
inline kelvara::MotionOutcome wait(ArmController& arm, const kelvara::MotionHandle& motion) {
  kelvara::MotionOutcome outcome = kelvara::MotionOutcome::kTimeout;
  while (received_signal == 0 && outcome == kelvara::MotionOutcome::kTimeout) {
    outcome = motion.wait_for(0.01);
  }
  if (received_signal != 0) {
    stop(arm);
  }
  return outcome;
}

}  // namespace interrupt
