#pragma once

#include <optional>

#include "kelvara/arm_controller.hpp"
#include "support/random_calls.hpp"
#include "support/step_watch.hpp"

/// Gives commands that nothing but the next one replaces, and bounds their steps on the bus by
/// their own speed.
class SoleCommander {
 public:
  SoleCommander(ArmController& arm, RandomCalls& calls, StepWatch& watch)
      : arm_(arm), calls_(calls), watch_(watch) {}
  ~SoleCommander() { watch_.pause(); }
  SoleCommander(const SoleCommander&) = delete;
  SoleCommander& operator=(const SoleCommander&) = delete;

  /// Gives one command and observes it for a while. Where it replaces another, or the arm recovers,
  /// the step does not count.
  /// @throws std::runtime_error when the arm has stopped meanwhile; the next call recovers it.
  void command();

 private:
  void timed_move();
  void target();
  void waypoints();
  void pose_stream();
  std::optional<kelvara::ArmState> await_command();
  void observe(double bound);
  void count_steps(double bound);

  ArmController& arm_;
  RandomCalls& calls_;
  StepWatch& watch_;
  double marker_ = 0.0;      // N·m/rad
  double last_bound_ = 0.0;  // rad
};
