#pragma once

#include <vector>

#include "kelvara/septuple_trajectory.hpp"

namespace kelvara::motion {

/// Samples a move from rest to rest; see `ArmController::generate_septuple_trajectory`. Pure.
SeptupleTrajectory generate_septuple_trajectory(const std::vector<double>& q_start,
                                                const std::vector<double>& q_end, double tf,
                                                double freq);

}  // namespace kelvara::motion
