#include "hardware/jaw_geometry.hpp"

#include <cmath>

#include "diagnostics/line.hpp"

namespace kelvara::can::socket {

using description::kJawLinkage;

bool is_jaw_distance_in_range(double distance_m) {
  return distance_m >= 0.0 && distance_m <= kMaxJawDistance;
}

double jaw_angle_from_distance(double distance_m) {
  const double a = kJawLinkage.closed_jaw_offset + 0.5 * distance_m;
  const double s = a * a + kJawLinkage.axis_offset_sq;
  double b = (kJawLinkage.crank_length_sq + a * a + kJawLinkage.axis_offset_sq -
              kJawLinkage.rod_length_sq) /
             (2.0 * kJawLinkage.crank_length);
  const double root_argument = s - b * b;
  double y = kJawLinkage.axis_offset;
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
  return kJawLinkage.crank_angle_at_zero - 2.0 * std::atan2(y, t);
}

double jaw_distance_from_angle(double motor_angle) {
  const double crank_angle = kJawLinkage.crank_angle_at_zero - motor_angle;
  const double d = std::sin(crank_angle) * kJawLinkage.crank_length - kJawLinkage.axis_offset;
  const double root_argument = kJawLinkage.rod_length_sq - d * d;
  if (root_argument < 0.0) {
    diagnostics::error_line() << "Error: Kinematics singularity, sqrt arg=" << root_argument
                              << " at angle=" << crank_angle;
    return -1.0;
  }
  return 2.0 * (std::sqrt(root_argument) - std::cos(crank_angle) * kJawLinkage.crank_length -
                kJawLinkage.closed_jaw_offset);
}

}  // namespace kelvara::can::socket
