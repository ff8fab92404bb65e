#pragma once

#include <vector>

/// A sampled joint trajectory.
struct SeptupleTrajectory {
  /// [joint][series][sample]: six joints; series 0 position (rad), 1 velocity (rad/s), 2
  /// acceleration (rad/s²).
  std::vector<std::vector<std::vector<double>>> joints;
  std::vector<double> time;  // s from the start, one for each sample
};
