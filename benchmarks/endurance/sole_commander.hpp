#pragma once

#include <cstdint>
#include <optional>

#include "kelvara/arm_controller.hpp"

#include "benchmarks/endurance/random_calls.hpp"
#include "benchmarks/endurance/step_watch.hpp"

/// Gives commands that nothing but the next one replaces, and compares their steps on the bus with
/// what their own speed allows. Nobody else commands the joints or the gripper meanwhile.
class SoleCommander {
 public:
  /// The outcome of all commands of a thread.
  struct Result {
    long steps = 0;
    double largest_step = 0.0;   // rad
    double largest_share = 0.0;  // of what the command's speed allowed
  };

  SoleCommander(ArmController& arm, RandomCalls& calls, StepWatch& watch, Result& result)
      : arm_(arm), calls_(calls), watch_(watch), result_(result) {}

  /// Gives one command and observes it for a while. Where it replaces another, or the arm recovers,
  /// the step does not count.
  /// @throws std::runtime_error when the arm has stopped meanwhile; the next call recovers it.
  void command();

 private:
  void timed_move();
  void target();
  void waypoints();
  void pose_stream();
  std::optional<kelvara::ArmState> await_cycle();
  void begin();
  static void hold(double seconds);
  void end_with_clock(double velocity, double extra_s);
  void end_with_bound(double bound);
  void add(const StepWatch::Result& steps, double bound);

  ArmController& arm_;
  RandomCalls& calls_;
  StepWatch& watch_;
  Result& result_;
  double marker_ = 0.0;  // N·m/rad
  std::uint64_t late_cycles_ = 0;
};
