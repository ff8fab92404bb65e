#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "simulation/simulated_arm/simulated_arm.hpp"

namespace kelvara::simulation {

/// Prints every change of a simulated arm's motor states and, while the arm moves, its joint angles
/// and tool position four times per second.
class ProgressDisplay {
 public:
  explicit ProgressDisplay(const SimulatedArm& arm) : arm_(arm) {}

  /// Must be called after every millisecond of physics; prints `event`, too, unless it is empty.
  void update(const std::string& event = "");

 private:
  std::string motor_states() const;
  void print(const std::string& text) const;

  const SimulatedArm& arm_;
  std::uint64_t time_ms_ = 0;
  std::string last_states_;
  SimulatedArm::Joints last_printed_{};
};

}  // namespace kelvara::simulation
