#include "motion/joint_path.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace kelvara::motion {
namespace {

Rates<double> rates_of(const PathKnot& knot, std::size_t joint) {
  return {knot.q[joint], knot.first[joint], knot.second[joint]};
}

/// The point of a line at the distance `along` from its start.
PathKnot point_on_line(const JointArray& from, const JointArray& to, double along, double s) {
  const double length = joint_distance(from, to);
  PathKnot knot;
  knot.s = s;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    knot.first[i] = (to[i] - from[i]) / length;
    knot.q[i] = along >= length ? to[i] : from[i] + along * knot.first[i];
  }
  return knot;
}

}  // namespace

std::array<Quintic<double>, kJointCount> curves_between(const PathKnot& from, const PathKnot& to) {
  std::array<Quintic<double>, kJointCount> curves;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    curves[i] = Quintic<double>::between(rates_of(from, i), rates_of(to, i), to.s - from.s);
  }
  return curves;
}

JointPath::JointPath(std::vector<PathKnot> knots) : knots_(std::move(knots)) {
  curves_.reserve(knots_.size() - 1);
  for (std::size_t k = 1; k < knots_.size(); ++k) {
    curves_.push_back(curves_between(knots_[k - 1], knots_[k]));
  }
}

PathState JointPath::at(double s) const {
  const auto after = std::upper_bound(knots_.begin() + 1, knots_.end() - 1, s,
                                      [](double at, const PathKnot& knot) { return at < knot.s; });
  const auto k = static_cast<std::size_t>(after - knots_.begin());
  const double u = std::clamp(s, 0.0, length()) - knots_[k - 1].s;
  PathState state;
  state.s = s;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const Quintic<double>& curve = curves_[k - 1][i];
    const Rates<double> rates = curve.at(u);
    state.q[i] = s >= length() ? knots_.back().q[i] : rates.value;
    state.first[i] = rates.first;
    state.second[i] = rates.second;
    state.third[i] = curve.third(u);
  }
  return state;
}

JointPath straight_joint_path(const std::vector<JointArray>& points,
                              const std::vector<double>& roundings) {
  std::vector<PathKnot> knots{point_on_line(points[0], points[1], 0.0, 0.0)};
  double s = 0.0;
  double cut = 0.0;  // from the start of the current line
  for (std::size_t k = 1; k + 1 < points.size(); ++k) {
    const double length = joint_distance(points[k - 1], points[k]);
    const double next = joint_distance(points[k], points[k + 1]);
    const double rounding = std::min(roundings[k - 1], 0.5 * std::min(length, next));
    if (length - rounding > cut) {
      s += length - rounding - cut;
      knots.push_back(point_on_line(points[k - 1], points[k], length - rounding, s));
    }
    s += 2.0 * rounding;
    knots.push_back(point_on_line(points[k], points[k + 1], rounding, s));
    cut = rounding;
  }
  const std::size_t last = points.size() - 1;
  const double length = joint_distance(points[last - 1], points[last]);
  knots.push_back(point_on_line(points[last - 1], points[last], length, s + length - cut));
  return JointPath(std::move(knots));
}

double joint_distance(const JointArray& from, const JointArray& to) {
  double sum = 0.0;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    sum += (to[i] - from[i]) * (to[i] - from[i]);
  }
  return std::sqrt(sum);
}

}  // namespace kelvara::motion
