#include "simulation/simulated_arm/jaw_linkage.hpp"

#include <algorithm>
#include <cmath>

namespace kelvara::simulation {
namespace {

constexpr double kCrank = 0.0355;          // m
constexpr double kRod = 0.038;             // m
constexpr double kAside = 0.015393;        // m, from the crank's axis to the line of the rod's end
constexpr double kClosedReach = 0.01722;   // m, of the rod's end along that line, closed
constexpr double kClosedCrank = 1.056071;  // rad, crank angle at motor angle 0

}  // namespace

double jaw_stroke_at(double motor_angle) {
  const double crank = kClosedCrank - motor_angle;
  const double rise = kCrank * std::sin(crank) - kAside;
  return std::sqrt(kRod * kRod - rise * rise) - kCrank * std::cos(crank) - kClosedReach;
}

double jaw_motor_angle_at(double stroke) {
  // The law of cosines in the triangle of crank, rod and the way between their outer ends.
  const double reach = kClosedReach + stroke;
  const double way = std::hypot(reach, kAside);
  const double cosine = (kCrank * kCrank + way * way - kRod * kRod) / (2.0 * kCrank * way);
  const double crank = M_PI - std::atan2(kAside, reach) - std::acos(std::clamp(cosine, -1.0, 1.0));
  return kClosedCrank - crank;
}

double jaw_ratio_at(double motor_angle) {
  const double crank = kClosedCrank - motor_angle;
  const double rise = kCrank * std::sin(crank) - kAside;
  const double run = std::sqrt(kRod * kRod - rise * rise);
  return kCrank * (rise * std::cos(crank) / run - std::sin(crank));
}

}  // namespace kelvara::simulation
