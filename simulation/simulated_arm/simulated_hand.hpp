#pragma once

#include <string>

#include "simulation/simulated_arm/simulated_arm.hpp"

namespace kelvara::simulation {

/// A hand that takes an arm by its tool once the arm has floated for six seconds, that is, once its
/// joint motors have been asked for torques alone. It carries the tool elsewhere in two seconds,
/// holds it there for one and lets go; it does so once. It holds a point, not an orientation, and
/// is as firm as a spring with a damper.
class SimulatedHand {
 public:
  /// @param carry Where it carries the tool, from where it took it: m, along the base frame's axes.
  SimulatedHand(SimulatedArm& arm, const Triple& carry) : arm_(arm), carry_(carry) {}

  /// To be called after every millisecond.
  /// @return what the hand begins to do now; mostly nothing.
  std::string update();

 private:
  enum class Phase { kWaiting, kCarrying, kHolding, kDone };

  void pull_towards(double share);

  SimulatedArm& arm_;
  Triple carry_;
  Phase phase_ = Phase::kWaiting;
  double phase_s_ = 0.0;  // since the phase began; while waiting, since the arm floats
  Triple taken_{};        // where the tool was taken, m
  Triple last_tool_{};    // m
};

}  // namespace kelvara::simulation
