#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulation/simulated_arm/realtime_arm.hpp"

namespace kelvara::simulation {

/// The program's command line.
struct SimulatedArmArguments {
  RealtimeArm::Options arm;
  std::string urdf;            // empty: the project's own
  std::string config;          // empty: the project's own
  std::string scene;           // path; empty: nothing collides
  std::string body_report;     // path; empty: none
  std::optional<Triple> hand;  // displacement of the tool, m
  double lose = 0.0;           // share of the frames that are lost, in both directions
  unsigned seed = 1;           // of the frames that are lost
  bool show = false;
  bool help = false;
};

/// Invalid arguments.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The text of --help.
extern const char* const kSimulatedArmUsage;

/// @throws UsageError with the option and the reason.
SimulatedArmArguments parse_arguments(const std::vector<std::string>& words);

}  // namespace kelvara::simulation
