#include "kinematics/joint_range.hpp"

#include <algorithm>
#include <cmath>

namespace kelvara::kinematics {
namespace {

constexpr double kTurn = 2.0 * 3.14159265358979323846;
constexpr double kRounding = 1e-9;  // rad

}  // namespace

bool JointRange::fit(double& angle, double margin) const {
  if (!prismatic) {
    angle = std::abs(angle) > 0.5 * kTurn ? std::remainder(angle, kTurn) : angle;
    if (angle < lower - margin) {
      angle += kTurn * std::ceil((lower - margin - angle) / kTurn);
    } else if (angle > upper + margin) {
      angle -= kTurn * std::ceil((angle - upper - margin) / kTurn);
    }
  }
  if (!(angle >= lower - margin && angle <= upper + margin)) {
    return false;
  }
  if (margin <= kRounding) {
    angle = std::clamp(angle, lower, upper);
  }
  return true;
}

double JointRange::turned_towards(double angle, double near) const {
  if (prismatic) {
    return angle;
  }
  const double most_down = -std::floor((angle - lower) / kTurn);
  const double most_up = std::floor((upper - angle) / kTurn);
  return angle + kTurn * std::clamp(std::round((near - angle) / kTurn), most_down, most_up);
}

double JointRange::excess(double& angle) const {
  if (fit(angle, 0.0)) {
    return 0.0;
  }
  if (prismatic) {
    return angle < lower ? lower - angle : angle - upper;
  }
  // The last turn below the range and the first one above it.
  const double below = angle + kTurn * std::floor((lower - angle) / kTurn);
  const double above = below + kTurn;
  angle = lower - below < above - upper ? below : above;
  return std::min(lower - below, above - upper);
}

double JointRange::middle() const {
  return std::isfinite(lower) && std::isfinite(upper) ? 0.5 * (lower + upper) : 0.0;
}

bool fit(const JointRanges& ranges, JointArray& q, double margin) {
  for (std::size_t j = 0; j < kJointCount; ++j) {
    if (!ranges[j].fit(q[j], margin)) {
      return false;
    }
  }
  return true;
}

Excess largest_excess(const JointRanges& ranges, const JointArray& q) {
  Excess largest;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    double angle = q[j];
    const double by = ranges[j].excess(angle);
    if (by > largest.by) {
      largest = {j, angle, by};
    }
  }
  return largest;
}

}  // namespace kelvara::kinematics
