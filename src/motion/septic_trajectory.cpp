#include "motion/septic_trajectory.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "description/joint_array.hpp"

namespace kelvara::motion {
namespace {

// A duration outside this range is refused; inside it, no power of the duration that is divided by
// overflows or underflows.
constexpr double kShortestMoveS = 1e-40;
constexpr double kLongestMoveS = 1e40;

/// A move from 0 to 1 in the time from 0 to 1, at rest at both ends.
struct UnitMove {
  double position, velocity, acceleration;
};

/// Evaluates the polynomial of degree 7 with zero velocity, acceleration and jerk at both ends.
UnitMove unit_move(double s) {
  const double rest = 1.0 - s;
  const double product = s * rest;
  const double square = product * product;
  return {(s * s) * (s * s) * (35.0 + s * (-84.0 + s * (70.0 - 20.0 * s))),
          140.0 * square * product, 420.0 * square * (rest - s)};
}

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

/// The move at each time, but for the ends, which need none.
std::vector<UnitMove> sample_unit_move(const std::vector<double>& time, double tf) {
  std::vector<UnitMove> moves(time.size());
  for (std::size_t k = 1; k + 1 < time.size(); ++k) {
    moves[k] = unit_move(time[k] / tf);
  }
  return moves;
}

/// Returns position, velocity and acceleration of one joint. The ends are exact, without rounding.
std::vector<std::vector<double>> sample_joint(const std::vector<UnitMove>& moves, double start,
                                              double end, double tf) {
  const double distance = end - start;
  const double speed = distance / tf;
  const double acceleration = speed / tf;
  std::vector series(3, std::vector<double>(moves.size()));
  for (std::size_t k = 1; k + 1 < moves.size(); ++k) {
    series[0][k] = start + distance * moves[k].position;
    series[1][k] = speed * moves[k].velocity;
    series[2][k] = acceleration * moves[k].acceleration;
  }
  series[0].front() = start;
  series[0].back() = end;
  return series;
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
  const std::vector<UnitMove> moves = sample_unit_move(trajectory.time, tf);
  for (std::size_t j = 0; j < kJointCount; ++j) {
    const std::size_t from = q_start.size() == 1 ? 0 : j;
    trajectory.joints.push_back(sample_joint(moves, q_start[from], q_end[from], tf));
  }
  return trajectory;
}

}  // namespace kelvara::motion
