#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "simulation/simulated_arm/simulated_arm_bus.hpp"

namespace kelvara::simulation {

/// Injects random faults into the frames between a controller and the simulated motors. Equal seeds
/// give equal faults for equal sequences of frames, as in tests that step the arm.
class Adversary {
 public:
  /// Probabilities for each frame of one direction, 0 to 1.
  struct Rates {
    double lose = 0.0;
    double delay = 0.0;           // by 1 to `longest_delay` later frames of its direction
    double repeat = 0.0;          // it arrives twice
    double forge_feedback = 0.0;  // feedback of an enabled motor, with random values, follows it
    double forge_register = 0.0;  // a register reply follows it; on the way to the motors, a query
    double forge_command = 0.0;   // a motor command of another controller, with random values
  };
  struct Options {
    std::uint32_t seed = 1;
    Rates to_motors;  // the motors execute forged commands
    Rates to_host;
    unsigned longest_delay = 40;  // frames; in MIT mode about 10 ms of the frames to the motors
    /// Receives each frame on its way to the motors before the faults, forged ones excluded: what a
    /// witness on the bus cannot separate. Called by the thread that handles the bus's frames.
    std::function<void(const canfd_frame&)> observe_command = {};
  };
  /// The number of faults so far, both directions.
  struct Counts {
    unsigned lost = 0, delayed = 0, repeated = 0;
    unsigned forged_feedback = 0, forged_registers = 0, forged_commands = 0;
  };

  explicit Adversary(const Options& options);

  /// Takes both frame hooks of a bus. Call once, before a thread handles the bus's frames.
  void attach(SimulatedArmBus& bus);
  /// While it is not active, frames pass unchanged, and those still delayed are dropped; for a
  /// start or an end without faults. Any thread.
  void set_active(bool active);
  /// Any thread.
  Counts counts() const;

 private:
  struct State;
  std::shared_ptr<State> state_;  // shared with the hooks
};

}  // namespace kelvara::simulation
