#pragma once

#include <string>

#include "simulation/simulated_arm/simulated_arm.hpp"

namespace kelvara::simulation {

/// A hand that grips an arm's tool once the arm has floated for six seconds, that is, once its
/// joint motors have been commanded by torque alone. It carries the tool elsewhere in two seconds,
/// holds it there for one and releases it; it does so once. It constrains the tool's position, not
/// its orientation, as a spring with a damper.
class SimulatedHand {
 public:
  /// @param carry Displacement of the tool: m, along the base frame's axes.
  SimulatedHand(SimulatedArm& arm, const Triple& carry) : arm_(arm), carry_(carry) {}

  /// Must be called after every millisecond of physics.
  /// @return what the hand begins to do now; "" at most calls.
  std::string update();

 private:
  enum class Phase { kWaiting, kCarrying, kHolding, kDone };

  void pull_towards(double share);

  SimulatedArm& arm_;
  Triple carry_;
  Phase phase_ = Phase::kWaiting;
  double phase_s_ = 0.0;  // since the phase began; while waiting, since the arm began to float
  Triple taken_{};        // tool position when the hand gripped it, m
  Triple last_tool_{};    // m
};

}  // namespace kelvara::simulation
