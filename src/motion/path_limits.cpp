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

/// The first two derivatives of the length of a curve.
AxisRates length_rates(const VectorRates& curve) {
  const double speed = norm(curve.first);
  return {speed, speed > 0.0 ? dot(curve.first, curve.second) / speed : 0.0, 0.0};
}

/// The tool's axes at `s`; `step`: of the differences.
void add_tool(const ToolPath& tool, double s, double step, PathCell& cell) {
  const ToolPoint middle = tool.at(s);
  const ToolPoint before = tool.at(s - step);
  const ToolPoint after = tool.at(s + step);
  AxisRates& travel = cell.axes[kTravel] = length_rates(middle.position);
  AxisRates& turn = cell.axes[kTurn] = length_rates(middle.angular);
  travel.third =
      (length_rates(after.position).second - length_rates(before.position).second) / (2.0 * step);
  turn.third =
      (length_rates(after.angular).second - length_rates(before.angular).second) / (2.0 * step);
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
  return cell.relief * speed;
}

void PathLimits::limit_acceleration(const PathCell& cell, JointShare share, SpeedZone& zone) const {
  const double v = zone.speed;
  const double relief = cell.relief * cell.relief;
  for (std::size_t axis = 0; axis < kAxisCount; ++axis) {
    const bool curved = axis >= kJointCount || share == JointShare::kCurved;
    const double first = std::abs(cell.axes[axis].first);
    const double second = curved ? std::abs(cell.axes[axis].second) : 0.0;
    const double third = curved ? std::abs(cell.axes[axis].third) : 0.0;
    const double rest = limits_[axis].acceleration - second * v * v;
    const double jerk = kCurveJerkShare * (limits_[axis].jerk - third * v * v * v);
    zone.acceleration =
        std::min({zone.acceleration, relief * rest / first, relief * jerk / (3.0 * second * v)});
  }
}

void PathLimits::limit_jerk(const PathCell& cell, JointShare share, SpeedZone& zone) const {
  const double v = zone.speed;
  const double relief = cell.relief * cell.relief * cell.relief;
  for (std::size_t axis = 0; axis < kAxisCount; ++axis) {
    const bool curved = axis >= kJointCount || share == JointShare::kCurved;
    const double curve = curved ? std::abs(cell.axes[axis].third) * v * v * v +
                                      3.0 * std::abs(cell.axes[axis].second) * v * zone.acceleration
                                : 0.0;
    zone.jerk = std::min(zone.jerk,
                         relief * (limits_[axis].jerk - curve) / std::abs(cell.axes[axis].first));
  }
}

std::vector<SpeedZone> PathLimits::zones(JointShare share) const {
  std::vector<double> speeds;
  for (const PathCell& cell : cells_) {
    speeds.push_back(cell_speed(cell, share));
  }
  const double top = *std::max_element(speeds.begin(), speeds.end());
  std::vector<SpeedZone> zones;
  for (std::size_t begin = 0, end = 0; begin < cells_.size(); begin = end) {
    while (end < cells_.size() && level_of(speeds[end], top) == level_of(speeds[begin], top)) {
      ++end;
    }
    SpeedZone zone{cells_[end - 1].end - cells_[begin].begin,
                   *std::min_element(speeds.begin() + static_cast<std::ptrdiff_t>(begin),
                                     speeds.begin() + static_cast<std::ptrdiff_t>(end)),
                   kInfinity, kInfinity};
    for (std::size_t k = begin; k < end; ++k) {
      limit_acceleration(cells_[k], share, zone);
    }
    for (std::size_t k = begin; k < end; ++k) {
      limit_jerk(cells_[k], share, zone);
    }
    zones.push_back(zone);
  }
  return zones;
}

void PathLimits::relieve(double begin, double end, double fraction) {
  for (PathCell& cell : cells_) {
    if (cell.end >= begin && cell.begin <= end) {
      cell.relief *= fraction;
    }
  }
}

std::vector<PathLimits::Obstacle> PathLimits::obstacles(double fraction) const {
  std::vector<Obstacle> found;
  for (const PathCell& cell : cells_) {
    const double tool = std::min(axis_speed(cell, kTravel, JointShare::kProportional),
                                 axis_speed(cell, kTurn, JointShare::kProportional));
    std::size_t slowest = 0;
    for (std::size_t i = 1; i < kJointCount; ++i) {
      const bool slower =
          axis_speed(cell, i, JointShare::kCurved) < axis_speed(cell, slowest, JointShare::kCurved);
      slowest = slower ? i : slowest;
    }
    if (axis_speed(cell, slowest, JointShare::kCurved) < fraction * tool) {
      found.push_back({0.5 * (cell.begin + cell.end), static_cast<int>(slowest) + 1});
    }
  }
  return found;
}

}  // namespace kelvara::motion
