#include "motion/waypoint_profile.hpp"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "motion/plan_checks.hpp"
#include "motion/plan_report.hpp"
#include "motion/waypoint_timing.hpp"

namespace kelvara::motion {
namespace {

constexpr double kPeriodS = Plan::kSamplePeriodS;
// Small weights suit motions that the jerk bounds, large ones those that the velocity bounds.
constexpr double kWeights[] = {0.0, 20.0, 300.0};
constexpr double kStraightPart = 0.3;
constexpr double kLimitTolerance = 1e-12;    // relative, rounding
constexpr double kPositionTolerance = 1e-9;  // rad
constexpr double kSameDurationS = 1e-9;

bool is_beyond(const description::JointLimits& limits, std::size_t joint, double start, double q) {
  return std::abs(limits.clamp_from(joint, start, q) - q) > kPositionTolerance;
}

/// The joints that leave their position limits in a segment.
StandingJoints find_overshoots(const ViaSpline& spline, std::size_t segment,
                               const description::JointLimits& limits, const JointArray& start) {
  StandingJoints overshoots;
  const double duration_s = spline.durations()[segment];
  const auto count = static_cast<std::size_t>(std::ceil(duration_s / kPeriodS));
  for (std::size_t k = 0; k < count; ++k) {
    const PlanSample sample = spline.at(segment, static_cast<double>(k) * kPeriodS);
    for (std::size_t j = 0; j < kJointCount; ++j) {
      overshoots[j] = overshoots[j] || is_beyond(limits, j, start[j], sample.q[j]);
    }
  }
  return overshoots;
}

bool leaves_limits(const ViaSpline& spline, const description::JointLimits& limits,
                   const JointArray& start) {
  bool leaves = false;
  for (std::size_t i = 0; i < spline.durations().size(); ++i) {
    leaves = leaves || find_overshoots(spline, i, limits, start).any();
  }
  return leaves;
}

/// Lets the joints that leave their position limits stand still before and after; between two
/// points at which it stands still a joint does not turn.
/// @return false when none leaves them.
bool stop_overshoots(const ViaSpline& spline, const description::JointLimits& limits,
                     ViaSpline::Course& course) {
  const std::vector<StandingJoints> before = course.standing;
  for (std::size_t i = 0; i < spline.durations().size(); ++i) {
    const StandingJoints overshoots = find_overshoots(spline, i, limits, course.points.front());
    course.standing[i] |= overshoots;
    course.standing[i + 1] |= overshoots;
  }
  return course.standing != before;
}

/// A course and the motion along it.
struct Candidate {
  ViaSpline::Course course;
  ViaSpline spline;
};

/// The fastest motion of those that keep the position limits.
std::optional<Candidate> find_fastest(const std::vector<JointArray>& points,
                                      const description::JointLimits& joints,
                                      const MotionLimits& limits) {
  std::optional<Candidate> best;
  for (const ViaSpline::Course& course :
       {plain_course(points), straight_course(points, kStraightPart)}) {
    for (const double weight : kWeights) {
      ViaSpline spline = find_timing(course, limits, weight);
      count_plan_samples(spline.duration_s());  // throws for too many
      const bool is_faster = !best || spline.duration_s() < best->spline.duration_s();
      if (is_faster && !leaves_limits(spline, joints, points.front())) {
        best = Candidate{course, std::move(spline)};
      }
    }
  }
  return best;
}

/// A motion with joints that stand still at via points, as far as their position limits need it.
Candidate find_standing(const std::vector<JointArray>& points,
                        const description::JointLimits& joints, const MotionLimits& limits) {
  ViaSpline::Course course = plain_course(points);
  ViaSpline spline = find_timing(course, limits, kWeights[1]);
  while (stop_overshoots(spline, joints, course)) {
    spline = find_timing(course, limits, kWeights[1]);
  }
  return {course, spline};
}

/// Slows a motion down to a duration. When that is hardly longer than the shortest, the limits may
/// not allow to move the via points to whole periods; the plan passes these within 1e-8 rad then.
ViaSpline slow_down(const Candidate& fastest, const description::JointLimits& joints,
                    const MotionLimits& limits, const PlanOptions& options) {
  ViaSpline spline = fastest.spline;
  check_duration(options, spline.duration_s());
  if (!(options.duration_s > spline.duration_s())) {
    return spline;
  }
  count_plan_samples(options.duration_s);  // throws for too many
  spline.stretch_by(options.duration_s / spline.duration_s());
  const ViaSpline::Course& course = fastest.course;
  const ViaSpline aligned = align_nearest(course, spline);
  const bool is_within = largest_stretch(aligned, limits) <= 1.0 + kLimitTolerance &&
                         !leaves_limits(aligned, joints, course.points.front());
  return is_within ? aligned : spline;
}

ViaSpline plan_spline(const std::vector<JointArray>& points, const description::JointLimits& joints,
                      const MotionLimits& limits, const PlanOptions& options) {
  std::optional<Candidate> fastest = find_fastest(points, joints, limits);
  if (!fastest) {
    fastest = find_standing(points, joints, limits);
  }
  fastest->spline = align_slower(fastest->course, fastest->spline, limits);
  return slow_down(*fastest, joints, limits, options);
}

}  // namespace

WaypointProfile::WaypointProfile(const std::vector<JointArray>& points,
                                 const description::JointLimits& joints, const MotionLimits& limits,
                                 const PlanOptions& options)
    : start_{points.front(), {}, {}},
      end_{points.back(), {}, {}},
      spline_(plan_spline(points, joints, limits, options)),
      duration_s_(std::abs(options.duration_s - spline_.duration_s()) < kSameDurationS
                      ? options.duration_s
                      : spline_.duration_s()) {}

std::vector<PlanSample> WaypointProfile::sample() const {
  std::vector<PlanSample> samples(count_plan_samples(duration_s_), end_);
  std::size_t segment = 0;
  double begin_s = 0.0;
  for (std::size_t k = 0; k + 1 < samples.size(); ++k) {
    const double time_s = plan_sample_time_s(k, duration_s_);
    while (segment + 1 < spline_.durations().size() &&
           time_s >= begin_s + spline_.durations()[segment]) {
      begin_s += spline_.durations()[segment];
      ++segment;
    }
    samples[k] = spline_.at(segment, time_s - begin_s);
  }
  samples.front() = start_;
  return samples;
}

}  // namespace kelvara::motion
