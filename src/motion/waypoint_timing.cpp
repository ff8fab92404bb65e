#include "motion/waypoint_timing.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>
#include <utility>

namespace kelvara::motion {
namespace {

constexpr double kPeriodS = Plan::kSamplePeriodS;
constexpr std::size_t kMaxSteps = 40;
constexpr std::size_t kMinSteps = 8;
constexpr std::size_t kMaxSegmentSteps = 20'000;  // bounds the work of long courses
constexpr double kTimingExponent = 0.3;
constexpr double kDivergence = 4.0;  // of the best duration: from here on it only grows
constexpr int kRoundingSteps = 50;
// What rounding may exceed a limit by, relative.
constexpr double kLimitTolerance = 1e-12;

std::vector<double> stretches(const ViaSpline& spline, const MotionLimits& limits) {
  std::vector<double> factors(spline.durations().size());
  for (std::size_t i = 0; i < factors.size(); ++i) {
    factors[i] = spline.stretch(i, limits);
  }
  return factors;
}

/// Durations that each would suffice if the joint needed no acceleration.
std::vector<double> first_guess(const ViaSpline::Course& course, const MotionLimits& limits) {
  std::vector<double> durations(course.points.size() - 1, 0.1 * kPeriodS);
  for (std::size_t i = 0; i < durations.size(); ++i) {
    for (std::size_t j = 0; j < kJointCount; ++j) {
      const double distance = std::abs(course.points[i + 1][j] - course.points[i][j]);
      durations[i] = std::max({durations[i], distance / limits.velocity[j],
                               std::sqrt(distance / limits.acceleration[j]),
                               2.0 * std::cbrt(distance / limits.jerk[j])});
    }
  }
  return durations;
}

/// Scales groups of `parts` segments to whole periods.
std::vector<double> round_up(std::vector<double> durations, std::size_t parts) {
  for (std::size_t i = 0; i < durations.size(); i += parts) {
    double sum_s = 0.0;
    for (std::size_t k = i; k < i + parts; ++k) {
      sum_s += durations[k];
    }
    const double periods = std::max(std::ceil(sum_s / kPeriodS - kLimitTolerance), 1.0);
    for (std::size_t k = i; k < i + parts; ++k) {
      durations[k] *= periods * kPeriodS / sum_s;
    }
  }
  return durations;
}

}  // namespace

ViaSpline::Course plain_course(const std::vector<JointArray>& points) {
  return {points, std::vector<StandingJoints>(points.size()), 1};
}

ViaSpline::Course straight_course(const std::vector<JointArray>& points, double part) {
  ViaSpline::Course course{{points.front()}, {}, 3};
  for (std::size_t i = 1; i < points.size(); ++i) {
    for (const double place : {part, 1.0 - part, 1.0}) {
      JointArray& point = course.points.emplace_back(points[i]);
      for (std::size_t j = 0; place < 1.0 && j < kJointCount; ++j) {
        point[j] = points[i - 1][j] + place * (points[i][j] - points[i - 1][j]);
      }
    }
  }
  course.standing.resize(course.points.size());
  return course;
}

double largest_stretch(const ViaSpline& spline, const MotionLimits& limits) {
  const std::vector<double> factors = stretches(spline, limits);
  return *std::max_element(factors.begin(), factors.end());
}

// Step by step, the segments that stay farther below the limits than others become shorter.
ViaSpline find_timing(const ViaSpline::Course& course, const MotionLimits& limits, double weight) {
  std::vector<double> durations = first_guess(course, limits);
  const std::size_t steps = std::clamp(kMaxSegmentSteps / durations.size(), kMinSteps, kMaxSteps);
  std::optional<ViaSpline> best;
  for (std::size_t step = 0; step < steps; ++step) {
    const double mean_s = std::accumulate(durations.begin(), durations.end(), 0.0) /
                          static_cast<double>(durations.size());
    ViaSpline spline(course, durations, weight / (mean_s * mean_s));
    const std::vector<double> factors = stretches(spline, limits);
    const double factor = *std::max_element(factors.begin(), factors.end());
    for (std::size_t i = 0; i < durations.size(); ++i) {
      durations[i] *= factor * std::pow(factors[i] / factor, kTimingExponent);
    }
    spline.stretch_by(factor);
    if (best && !(spline.duration_s() < kDivergence * best->duration_s())) {
      break;
    }
    if (!best || spline.duration_s() < best->duration_s()) {
      best = std::move(spline);
    }
  }
  return *best;
}

ViaSpline align_slower(const ViaSpline::Course& course, const ViaSpline& spline,
                       const MotionLimits& limits) {
  std::vector<double> durations = spline.durations();
  for (int step = 0; step < kRoundingSteps; ++step) {
    durations = round_up(durations, course.parts);
    ViaSpline aligned(course, durations, spline.weight());
    const double factor = largest_stretch(aligned, limits);
    if (factor <= 1.0 + kLimitTolerance) {
      return aligned;
    }
    for (double& duration : durations) {
      duration *= factor;
    }
  }
  return spline;
}

ViaSpline align_nearest(const ViaSpline::Course& course, const ViaSpline& spline) {
  std::vector<double> durations = spline.durations();
  double end_s = 0.0;
  double aligned_end_s = 0.0;
  for (std::size_t i = 0; i < durations.size(); i += course.parts) {
    double sum_s = 0.0;
    for (std::size_t k = i; k < i + course.parts; ++k) {
      sum_s += durations[k];
    }
    end_s += sum_s;
    const bool is_last = i + course.parts == durations.size();
    const double aligned_s = is_last ? end_s : kPeriodS * std::round(end_s / kPeriodS);
    for (std::size_t k = i; k < i + course.parts; ++k) {
      durations[k] *= (aligned_s - aligned_end_s) / sum_s;
    }
    aligned_end_s = aligned_s;
  }
  return ViaSpline(course, durations, spline.weight());
}

}  // namespace kelvara::motion
