#include "simulation/simulated_arm/simulated_hand.hpp"

#include <algorithm>
#include <cmath>

namespace kelvara::simulation {
namespace {

constexpr double kStepS = ArmPhysics::kStepS;
constexpr double kWatchS = 6.0;
constexpr double kCarryS = 2.0;
constexpr double kHoldS = 1.0;
constexpr double kStiffness = 600.0;  // N/m
constexpr double kDamping = 60.0;     // N·s/m
constexpr double kStrength = 80.0;    // N

/// From 0 to 1 with velocity and acceleration zero at both ends.
double smooth(double s) { return s * s * s * (10.0 + s * (-15.0 + 6.0 * s)); }

}  // namespace

std::string SimulatedHand::update() {
  phase_s_ += kStepS;
  switch (phase_) {
    case Phase::kWaiting:
      phase_s_ = arm_.floats() ? phase_s_ : 0.0;
      if (phase_s_ < kWatchS) {
        return "";
      }
      taken_ = last_tool_ = arm_.tool_position();
      phase_ = Phase::kCarrying;
      phase_s_ = 0.0;
      return "a hand takes the tool";
    case Phase::kCarrying:
      pull_towards(smooth(std::min(phase_s_ / kCarryS, 1.0)));
      if (phase_s_ < kCarryS) {
        return "";
      }
      phase_ = Phase::kHolding;
      phase_s_ = 0.0;
      return "the hand holds it still";
    case Phase::kHolding:
      pull_towards(1.0);
      if (phase_s_ < kHoldS) {
        return "";
      }
      arm_.set_tool_force({});
      phase_ = Phase::kDone;
      return "the hand releases the arm";
    case Phase::kDone:
      break;
  }
  return "";
}

void SimulatedHand::pull_towards(double share) {
  const Triple tool = arm_.tool_position();
  Triple force{};
  double squares = 0.0;
  for (std::size_t i = 0; i < force.size(); ++i) {
    const double velocity = (tool[i] - last_tool_[i]) / kStepS;
    force[i] = kStiffness * (taken_[i] + share * carry_[i] - tool[i]) - kDamping * velocity;
    squares += force[i] * force[i];
  }
  const double scale = std::min(1.0, kStrength / std::max(std::sqrt(squares), 1e-9));
  for (double& component : force) {
    component *= scale;
  }
  arm_.set_tool_force(force);
  last_tool_ = tool;
}

}  // namespace kelvara::simulation
