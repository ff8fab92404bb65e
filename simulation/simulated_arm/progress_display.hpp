#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "simulation/simulated_arm/simulated_arm.hpp"

namespace kelvara::simulation {

/// Prints what a simulated arm does: every change of its motors' states, and while it moves some
/// lines a second with its joint angles and where its tool is.
class ProgressDisplay {
 public:
  explicit ProgressDisplay(const SimulatedArm& arm) : arm_(arm) {}

  /// To be called after every millisecond, with what else is worth a line.
  void update(const std::string& news = "");

 private:
  std::string motor_states() const;
  void print(const std::string& text) const;

  const SimulatedArm& arm_;
  std::uint64_t time_ms_ = 0;
  std::string last_states_;
  SimulatedArm::Joints last_printed_{};
};

}  // namespace kelvara::simulation
