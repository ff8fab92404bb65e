#include "motion/septic_trajectory.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "description/joint_array.hpp"

namespace kelvara::motion {
namespace {

// Outside this range T^7, or a coefficient divided by it, overflows or underflows.
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

// 1 GiB: a time, and three values for each joint.
constexpr std::size_t kMaxSamples =
    (std::size_t{1} << 30) / ((1 + 3 * kJointCount) * sizeof(double));

std::size_t count_samples(double tf, double dt) {
  const double steps = std::ceil(tf / dt);
  if (!(steps < static_cast<double>(kMaxSamples))) {  // or NaN
    throw std::length_error("tf and freq ask for too many samples");
  }
  return std::max<std::size_t>(static_cast<std::size_t>(steps) + 1, 2);
}

void check_arguments(std::size_t starts, std::size_t ends, double tf, double freq) {
  const bool one_for_all = starts == 1 && ends == 1;
  if (!one_for_all && (starts != kJointCount || ends != kJointCount)) {
    throw std::invalid_argument("q_start/q_end length must be num_joints or 1");
  }
  if (0.0 >= tf) {
    throw std::invalid_argument("tf must be positive");
  }
  if (0.0 >= freq) {
    throw std::invalid_argument("freq must be positive");
  }
}

/// Fills position, velocity and acceleration of one joint, which stand at zero.
void sample_joint(const std::vector<double>& time, const Septic& septic, double end,
                  std::vector<std::vector<double>>& series) {
  const std::size_t last = time.size() - 1;
  for (std::size_t k = 0; k < last; ++k) {
    series[0][k] = septic.position(time[k]);
    series[1][k] = septic.velocity(time[k]);
    series[2][k] = septic.acceleration(time[k]);
  }
  series[0][last] = end;  // exact, without rounding; velocity and acceleration are zero there
}

}  // namespace

SeptupleTrajectory generate_septuple_trajectory(const std::vector<double>& q_start,
                                                const std::vector<double>& q_end, double tf,
                                                double freq) {
  check_arguments(q_start.size(), q_end.size(), tf, freq);
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
    const std::size_t from = q_start.size() == 1 ? 0 : j;
    const Septic septic(q_start[from], q_end[from] - q_start[from], tf);
    sample_joint(trajectory.time, septic, q_end[from], trajectory.joints[j]);
  }
  return trajectory;
}

}  // namespace kelvara::motion
