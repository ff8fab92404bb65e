#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include "controller/arm_controller_impl.hpp"

using kelvara::controller::kJointCount;

namespace {

// Between these the seventh power of a duration, and what is divided by it, are numbers.
constexpr double kShortestMoveS = 1e-40;
constexpr double kLongestMoveS = 1e40;

/// One joint's polynomial from rest to rest.
struct Septic {
  Septic(double q_start, double distance, double T)
      : start(q_start),
        a4(35.0 * distance / std::pow(T, 4.0)),
        a5(-84.0 * distance / std::pow(T, 5.0)),
        a6(70.0 * distance / std::pow(T, 6.0)),
        a7(-20.0 * distance / std::pow(T, 7.0)) {}

  double position(double t) const {
    return start + a4 * std::pow(t, 4.0) + a5 * std::pow(t, 5.0) + a6 * std::pow(t, 6.0) +
           a7 * std::pow(t, 7.0);
  }
  double velocity(double t) const {
    return 4.0 * a4 * std::pow(t, 3.0) + 5.0 * a5 * std::pow(t, 4.0) + 6.0 * a6 * std::pow(t, 5.0) +
           7.0 * a7 * std::pow(t, 6.0);
  }
  double acceleration(double t) const {
    return 12.0 * a4 * std::pow(t, 2.0) + 20.0 * a5 * std::pow(t, 3.0) +
           30.0 * a6 * std::pow(t, 4.0) + 42.0 * a7 * std::pow(t, 5.0);
  }

  double start;
  double a4, a5, a6, a7;
};

std::size_t count_samples(double tf, double dt) {
  const double steps = std::ceil(tf / dt);
  if (!(steps < std::numeric_limits<std::int32_t>::max())) {
    throw std::length_error("tf and freq ask for too many samples");
  }
  return static_cast<std::size_t>(std::max(static_cast<std::int32_t>(steps) + 1, 2));
}

}  // namespace

SeptupleTrajectory ArmController::generate_septuple_trajectory(const std::vector<double>& q_start,
                                                               const std::vector<double>& q_end,
                                                               double tf, double freq) {
  return Impl::generate_septuple_trajectory(q_start, q_end, tf, freq);
}

SeptupleTrajectory ArmController::Impl::generate_septuple_trajectory(
    const std::vector<double>& q_start, const std::vector<double>& q_end, double tf, double freq) {
  const bool one_for_all = q_start.size() == 1 && q_end.size() == 1;
  if (!one_for_all && (q_start.size() != kJointCount || q_end.size() != kJointCount)) {
    throw std::invalid_argument("q_start/q_end length must be num_joints or 1");
  }
  if (0.0 >= tf) {
    throw std::invalid_argument("tf must be positive");
  }
  if (0.0 >= freq) {
    throw std::invalid_argument("freq must be positive");
  }
  const double dt = 1.0 / freq;
  const std::size_t count = count_samples(tf, dt);
  if (tf < kShortestMoveS || tf > kLongestMoveS || !std::isfinite(dt)) {
    throw std::runtime_error("tf or freq is too extreme to compute with");
  }
  SeptupleTrajectory trajectory;
  trajectory.time.resize(count);
  for (std::size_t k = 0; k < count; ++k) {
    trajectory.time[k] = std::min(static_cast<double>(k) * dt, tf);
  }
  trajectory.joints.assign(kJointCount, std::vector(3, std::vector<double>(count, 0.0)));
  for (std::size_t j = 0; j < kJointCount; ++j) {
    const double start = q_start[one_for_all ? 0 : j];
    const double end = q_end[one_for_all ? 0 : j];
    const Septic septic(start, end - start, tf);
    std::vector<double>& position = trajectory.joints[j][0];
    std::vector<double>& velocity = trajectory.joints[j][1];
    std::vector<double>& acceleration = trajectory.joints[j][2];
    for (std::size_t k = 0; k + 1 < count; ++k) {
      position[k] = septic.position(trajectory.time[k]);
      velocity[k] = septic.velocity(trajectory.time[k]);
      acceleration[k] = septic.acceleration(trajectory.time[k]);
    }
    position.back() = end;  // exact, whatever was rounded; velocity and acceleration are zero there
  }
  return trajectory;
}
