#include "hardware/jaw_geometry.hpp"

#include <cmath>
#include <iostream>

namespace kelvara::can::socket {
namespace {

// The linkage in metres: a crank drives the jaw through a rod, on an axis offset to the side.
constexpr double kCrankLength = 0.0355;
constexpr double kAxisOffset = 0.015393;
constexpr double kAxisOffsetSquared = 0.000236944449;
constexpr double kCrankLengthSquared = 0.00126025;
constexpr double kRodLengthSquared = 0.001444;
constexpr double kClosedJawOffset = 0.01722;
constexpr double kCrankAngleAtZero = 1.056071;  // rad

}  // namespace

bool is_jaw_distance_in_range(double distance_m) {
  return distance_m >= 0.0 && distance_m <= kMaxJawDistance;
}

double jaw_angle_from_distance(double distance_m) {
  const double a = kClosedJawOffset + 0.5 * distance_m;
  const double s = a * a + kAxisOffsetSquared;
  double b =
      (kCrankLengthSquared + a * a + kAxisOffsetSquared - kRodLengthSquared) / (2.0 * kCrankLength);
  const double root_argument = s - b * b;
  double y = kAxisOffset;
  if (root_argument >= 0.0) {
    y -= std::sqrt(root_argument);
  } else {
    b = std::copysign(std::sqrt(s), b > 0.0 ? 1.0 : -1.0);
  }
  double t = b - a;
  if (t < 0.0) {
    y = -y;
    t = -t;
  }
  return kCrankAngleAtZero - 2.0 * std::atan2(y, t);
}

double jaw_distance_from_angle(double motor_angle) {
  const double crank_angle = kCrankAngleAtZero - motor_angle;
  const double d = std::sin(crank_angle) * kCrankLength - kAxisOffset;
  const double root_argument = kRodLengthSquared - d * d;
  if (root_argument < 0.0) {
    std::cerr << "Error: Kinematics singularity, sqrt arg=" << root_argument
              << " at angle=" << crank_angle << '\n';
    return -1.0;
  }
  return 2.0 * (std::sqrt(root_argument) - std::cos(crank_angle) * kCrankLength - kClosedJawOffset);
}

}  // namespace kelvara::can::socket
