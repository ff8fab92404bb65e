#include "motion/path_limits.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kelvara::motion {
namespace {

using kinematics::cross;
using kinematics::dot;
using kinematics::norm;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr std::size_t kTravel = kJointCount;
constexpr std::size_t kTurn = kJointCount + 1;
constexpr int kCellsPerCurve = 8;
// What the path's curvature may take of a limit at constant speed; the rest is for changing it.
constexpr double kAccelerationShare = 0.5;
constexpr double kJerkShare = 0.25;
// Of what is left of the jerk: for the acceleration on a curve, the rest is for changing it.
constexpr double kCurveJerkShare = 0.5;
constexpr double kMargin = 0.99;  // between the middle of a cell and its ends
// Speeds within this ratio share a zone.
constexpr double kZoneRatio = 0.75;
constexpr double kRounding = 1e-12;  // relative
// Of a cell: the step of the differences that yield the third derivative.
constexpr double kDifferenceStep = 0.25;

/// The first two derivatives of the length of the tool's path.
AxisRates travel_rates(const VectorRates& position) {
  const double speed = norm(position.first);
  return {speed, speed > 0.0 ? dot(position.first, position.second) / speed : 0.0, 0.0};
}

/// The tool's axes at `s`; `step`: of the differences. The turning counts as a vector, whose
/// direction changes as its length does.
void add_tool(const ToolPath& tool, double s, double step, PathCell& cell) {
  const ToolPoint middle = tool.at(s);
  const ToolPoint before = tool.at(s - step);
  const ToolPoint after = tool.at(s + step);
  AxisRates& travel = cell.axes[kTravel] = travel_rates(middle.position);
  travel.third =
      (travel_rates(after.position).second - travel_rates(before.position).second) / (2.0 * step);
  cell.axes[kTurn] = {norm(middle.angular.first), norm(middle.angular.second),
                      norm(after.angular.second - before.angular.second) / (2.0 * step)};
  if (travel.first > 0.0) {
    cell.across = norm(cross(middle.position.first, middle.position.second)) / travel.first;
  }
}

PathCell make_cell(const JointPath& path, const ToolPath* tool, double begin, double end) {
  PathCell cell{begin, end};
  const double s = 0.5 * (begin + end);
  const PathState state = path.at(s);
  for (std::size_t i = 0; i < kJointCount; ++i) {
    cell.axes[i] = {state.first[i], state.second[i], state.third[i]};
  }
  if (tool != nullptr) {
    add_tool(*tool, s, kDifferenceStep * (end - begin), cell);
  }
  return cell;
}

/// The absolute rates of an axis; those that `share` leaves out are 0.
AxisRates curve_of(const PathCell& cell, std::size_t axis, JointShare share) {
  const bool is_curved = axis >= kJointCount || share == JointShare::kCurved;
  const AxisRates& rates = cell.axes[axis];
  return {std::abs(rates.first), is_curved ? std::abs(rates.second) : 0.0,
          is_curved ? std::abs(rates.third) : 0.0};
}

/// Of a zone whose fastest cell runs at `top`.
int level_of(double speed, double top) {
  if (speed >= top * (1.0 - kRounding)) {
    return 0;
  }
  return 1 + static_cast<int>(std::log(speed / top) / std::log(kZoneRatio));
}

}  // namespace

PathLimits::PathLimits(const JointPath& path, const ToolPath* tool, const MotionLimits& limits) {
  for (std::size_t i = 0; i < kJointCount; ++i) {
    limits_[i] = {limits.velocity[i], limits.acceleration[i], limits.jerk[i]};
  }
  limits_[kTravel] = {limits.tool_speed, limits.tool_acceleration, limits.tool_jerk};
  limits_[kTurn] = {limits.tool_angular_speed, limits.tool_angular_acceleration,
                    limits.tool_angular_jerk};
  const std::vector<PathKnot>& knots = path.knots();
  for (std::size_t k = 1; k < knots.size(); ++k) {
    const double width = (knots[k].s - knots[k - 1].s) / kCellsPerCurve;
    for (int i = 0; i < kCellsPerCurve; ++i) {
      const double begin = knots[k - 1].s + i * width;
      cells_.push_back(make_cell(path, tool, begin, begin + width));
    }
  }
}

double PathLimits::axis_speed(const PathCell& cell, std::size_t axis, JointShare share) const {
  const auto& [first, second, third] = cell.axes[axis];
  const auto& [speed, acceleration, jerk] = limits_[axis];
  const double proportional = speed / std::abs(first);
  if (axis < kJointCount && share == JointShare::kProportional) {
    return proportional;
  }
  const double curved = std::min(std::sqrt(kAccelerationShare * acceleration / std::abs(second)),
                                 std::cbrt(kJerkShare * jerk / std::abs(third)));
  return axis < kJointCount ? kMargin * std::min(proportional, curved)
                            : std::min(proportional, curved);
}

double PathLimits::cell_speed(const PathCell& cell, JointShare share) const {
  double speed = std::sqrt(limits_[kTravel].acceleration / cell.across);
  for (std::size_t axis = 0; axis < kAxisCount; ++axis) {
    speed = std::min(speed, axis_speed(cell, axis, share));
  }
  return cell.speed_relief * speed;
}

double PathLimits::cell_acceleration(const PathCell& cell, JointShare share, double speed) const {
  double largest = kInfinity;
  for (std::size_t axis = 0; axis < kAxisCount; ++axis) {
    const AxisRates rates = curve_of(cell, axis, share);
    const double rest = limits_[axis].acceleration - rates.second * speed * speed;
    const double jerk = limits_[axis].jerk - rates.third * speed * speed * speed;
    largest = std::min(
        {largest, rest / rates.first, kCurveJerkShare * jerk / (3.0 * rates.second * speed)});
  }
  return largest;
}

double PathLimits::cell_jerk(const PathCell& cell, JointShare share, double speed,
                             double acceleration) const {
  double largest = kInfinity;
  for (std::size_t axis = 0; axis < kAxisCount; ++axis) {
    const AxisRates rates = curve_of(cell, axis, share);
    const double curve = speed * (rates.third * speed * speed + 3.0 * rates.second * acceleration);
    largest = std::min(largest, (limits_[axis].jerk - curve) / rates.first);
  }
  return largest;
}

SpeedRamp PathLimits::ramp(std::size_t begin, std::size_t end, JointShare share, double speed,
                           Relief relief) const {
  SpeedRamp ramp{kInfinity, kInfinity};
  for (std::size_t k = begin; k < end; ++k) {
    const double fraction = cells_[k].speed_relief * cells_[k].*relief;
    ramp.acceleration = std::min(
        ramp.acceleration, std::pow(fraction, 2) * cell_acceleration(cells_[k], share, speed));
  }
  for (std::size_t k = begin; k < end; ++k) {
    const double fraction = cells_[k].speed_relief * cells_[k].*relief;
    ramp.jerk = std::min(
        ramp.jerk, std::pow(fraction, 3) * cell_jerk(cells_[k], share, speed, ramp.acceleration));
  }
  return ramp;
}

std::vector<SpeedZone> PathLimits::zones(JointShare share) const {
  std::vector<double> speeds;
  for (const PathCell& cell : cells_) {
    speeds.push_back(cell_speed(cell, share));
  }
  const double top = *std::max_element(speeds.begin(), speeds.end());
  std::vector<SpeedZone> zones;
  for (std::size_t begin = 0, end = 0; begin < cells_.size(); begin = end) {
    double speed = speeds[begin];
    while (end < cells_.size() && level_of(speeds[end], top) == level_of(speeds[begin], top)) {
      speed = std::min(speed, speeds[end++]);
    }
    zones.push_back({cells_[end - 1].end - cells_[begin].begin, speed,
                     ramp(begin, end, share, speed, &PathCell::rise_relief),
                     ramp(begin, end, share, speed, &PathCell::fall_relief)});
  }
  return zones;
}

void PathLimits::relieve(double begin, double end, Relief relief, double fraction) {
  for (PathCell& cell : cells_) {
    if (cell.end >= begin && cell.begin <= end) {
      cell.*relief *= fraction;
    }
  }
}

double PathLimits::tool_speed(const PathCell& cell, double from_rest) const {
  double speed = kInfinity;
  for (const std::size_t axis : {kTravel, kTurn}) {
    const double jerk = limits_[axis].jerk / std::abs(cell.axes[axis].first);
    speed = std::min({speed, axis_speed(cell, axis, JointShare::kProportional),
                      std::cbrt(4.5 * jerk * from_rest * from_rest)});
  }
  return speed;
}

std::vector<PathLimits::Obstacle> PathLimits::obstacles(double fraction) const {
  std::vector<Obstacle> found;
  for (const PathCell& cell : cells_) {
    const double s = 0.5 * (cell.begin + cell.end);
    const double tool = tool_speed(cell, std::min(s, cells_.back().end - s));
    std::size_t slowest = 0;
    for (std::size_t i = 1; i < kJointCount; ++i) {
      const bool slower =
          axis_speed(cell, i, JointShare::kCurved) < axis_speed(cell, slowest, JointShare::kCurved);
      slowest = slower ? i : slowest;
    }
    if (axis_speed(cell, slowest, JointShare::kCurved) < fraction * tool) {
      found.push_back({s, static_cast<int>(slowest) + 1});
    }
  }
  return found;
}

}  // namespace kelvara::motion
