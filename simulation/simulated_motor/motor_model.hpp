#pragma once

namespace kelvara::simulation {

/// One motor model: the ranges of its frames, each over [-max, +max], and its strength.
struct MotorModel {
  double pmax;           // rad
  double vmax;           // rad/s
  double tmax;           // N·m, also the torque limit
  double velocity_gain;  // N·m·s/rad, of the velocity loop in position/velocity mode
};

}  // namespace kelvara::simulation
