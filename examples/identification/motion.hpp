#pragma once

#include <vector>

#include <Eigen/Core>

/// From feedback, sampled when it came, to smooth signals at even times.
namespace identification {

using Joints = Eigen::Matrix<double, 6, 1>;
using Rows = Eigen::Matrix<double, Eigen::Dynamic, 6>;  // one row for each instant

/// One feedback of all joints.
struct Sample {
  double time_s;
  Joints q, dq, torque;  // rad, rad/s, N·m
};

struct Motion {
  Eigen::VectorXd time_s;
  Rows q, dq, ddq, torque;  // rad, rad/s, rad/s², N·m
};

/// The sign of a velocity (rad/s), smooth as the samples around a reversal are.
double smooth_sign(double velocity);

/// Resamples at even times, smooths all signals with the same zero-phase filter, and differentiates
/// the velocities. Leaves out instants near a gap between samples; prints how many are left.
/// @throws std::runtime_error for fewer than 100 samples.
Motion motion_of(const std::vector<Sample>& samples);

}  // namespace identification
