#include "motion/via_spline.hpp"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

#include "motion/joint_segment.hpp"
#include "motion/joint_slices.hpp"

namespace kelvara::motion {
namespace {

// Integrals over a quintic segment of length 1, as quadratic forms in position, velocity and
// acceleration at its begin and end.
using Form = std::array<std::array<double, 6>, 6>;
constexpr Form kSquaredJerk{{{720, 360, 60, -720, 360, -60},
                             {360, 192, 36, -360, 168, -24},
                             {60, 36, 9, -60, 24, -3},
                             {-720, -360, -60, 720, -360, 60},
                             {360, 168, 24, -360, 192, -36},
                             {-60, -24, -3, 60, -36, 9}}};
// Times 70.
constexpr Form kSquaredAcceleration{{{1200, 600, 30, -1200, 600, -30},
                                     {600, 384, 22, -600, 216, -8},
                                     {30, 22, 6, -30, 8, 1},
                                     {-1200, -600, -30, 1200, -600, 30},
                                     {600, 216, 8, -600, 384, -22},
                                     {-30, -8, 1, 30, -22, 6}}};
// Indices of a segment's values.
constexpr std::size_t kBegin = 0;
constexpr std::size_t kEnd = 3;

/// A velocity and an acceleration.
struct Pair {
  double v = 0.0;
  double a = 0.0;
  Pair operator-(const Pair& other) const { return {v - other.v, a - other.a}; }
};

struct Matrix2 {
  double vv = 0.0, va = 0.0, av = 0.0, aa = 0.0;

  Pair operator*(const Pair& x) const { return {vv * x.v + va * x.a, av * x.v + aa * x.a}; }
  Matrix2 operator*(const Matrix2& m) const {
    return {vv * m.vv + va * m.av, vv * m.va + va * m.aa, av * m.vv + aa * m.av,
            av * m.va + aa * m.aa};
  }
  Matrix2 operator+(const Matrix2& m) const { return {vv + m.vv, va + m.va, av + m.av, aa + m.aa}; }
  Matrix2 operator-(const Matrix2& m) const { return {vv - m.vv, va - m.va, av - m.av, aa - m.aa}; }
  Matrix2 inverse() const {
    const double determinant = vv * aa - va * av;
    return {aa / determinant, -va / determinant, -av / determinant, vv / determinant};
  }
};

/// What a segment adds to the cost.
struct SegmentCost {
  SegmentCost(double h, double weight) : powers{1.0, h, h * h} {
    const double h3 = h * h * h;
    jerk = 1.0 / (h3 * h * h);
    acceleration = weight / (70.0 * h3);
  }
  double of(std::size_t row, std::size_t column) const {
    return powers[row % 3] * powers[column % 3] *
           (jerk * kSquaredJerk[row][column] + acceleration * kSquaredAcceleration[row][column]);
  }
  Matrix2 rates(std::size_t row, std::size_t column) const {
    return {of(row + 1, column + 1), of(row + 1, column + 2), of(row + 2, column + 1),
            of(row + 2, column + 2)};
  }
  /// The gradient at one end by the distance of the segment.
  Pair by_distance(std::size_t row, double distance) const {
    return {distance * of(row + 1, kEnd), distance * of(row + 2, kEnd)};
  }

  std::array<double, 3> powers;
  double jerk;
  double acceleration;
};

}  // namespace

ViaSpline::ViaSpline(const Course& course, std::vector<double> durations, double weight)
    : durations_(std::move(durations)), weight_(weight), nodes_(course.points.size()) {
  for (std::size_t i = 0; i < nodes_.size(); ++i) {
    nodes_[i].q = course.points[i];
  }
  for (std::size_t j = 0; j < kJointCount; ++j) {
    solve(course, j);
  }
}

/// Sets the gradient to zero: a block-tridiagonal system, eliminated forwards, solved backwards.
void ViaSpline::solve(const Course& course, std::size_t joint) {
  const std::size_t last = durations_.size();
  std::vector<Matrix2> coupling(last + 1);
  std::vector<Pair> rates(last + 1);
  for (std::size_t i = 1; i < last; ++i) {
    if (course.standing[i][joint]) {
      continue;
    }
    const SegmentCost left(durations_[i - 1], weight_);
    const SegmentCost right(durations_[i], weight_);
    const Matrix2 before = left.rates(kEnd, kBegin);
    const Matrix2 pivot =
        (left.rates(kEnd, kEnd) + right.rates(kBegin, kBegin) - before * coupling[i - 1]).inverse();
    const double from_left = nodes_[i].q[joint] - nodes_[i - 1].q[joint];
    const double to_right = nodes_[i + 1].q[joint] - nodes_[i].q[joint];
    const Pair zero;
    rates[i] = pivot * (zero - left.by_distance(kEnd, from_left) -
                        right.by_distance(kBegin, to_right) - before * rates[i - 1]);
    coupling[i] = pivot * right.rates(kBegin, kEnd);
  }
  for (std::size_t i = last; i-- > 1;) {
    rates[i] = rates[i] - coupling[i] * rates[i + 1];
    nodes_[i].dq[joint] = rates[i].v;
    nodes_[i].ddq[joint] = rates[i].a;
  }
}

double ViaSpline::stretch(std::size_t segment, const MotionLimits& limits) const {
  double factor = 0.0;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    const JointSegment joint_segment(joint_state(nodes_[segment], j),
                                     joint_state(nodes_[segment + 1], j), durations_[segment]);
    factor = std::max(factor, joint_segment.stretch(rate_limits(limits, j)));
  }
  return factor;
}

PlanSample ViaSpline::at(std::size_t segment, double time_s) const {
  PlanSample sample;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    const JointSegment joint_segment(joint_state(nodes_[segment], j),
                                     joint_state(nodes_[segment + 1], j), durations_[segment]);
    set_joint_state(sample, j, joint_segment.at(time_s));
  }
  return sample;
}

double ViaSpline::duration_s() const {
  return std::accumulate(durations_.begin(), durations_.end(), 0.0);
}

void ViaSpline::stretch_by(double factor) {
  for (double& duration : durations_) {
    duration *= factor;
  }
  weight_ /= factor * factor;
  for (PlanSample& node : nodes_) {
    for (std::size_t j = 0; j < kJointCount; ++j) {
      node.dq[j] /= factor;
      node.ddq[j] /= factor * factor;
    }
  }
}

}  // namespace kelvara::motion
