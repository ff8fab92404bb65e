#include <utility>

#include "kelvara/motion/planner.hpp"

#include "motion/path_builder.hpp"
#include "motion/path_motion.hpp"
#include "motion/plan_checks.hpp"
#include "motion/plan_report.hpp"

namespace kelvara {

PathSegment PathSegment::joint(const std::array<double, 6>& joints, double blend) {
  PathSegment segment;
  segment.kind = Kind::kJoint;
  segment.joints = joints;
  segment.blend = blend;
  return segment;
}

PathSegment PathSegment::linear(const Pose& end, double blend) {
  PathSegment segment;
  segment.end = end;
  segment.blend = blend;
  return segment;
}

PathSegment PathSegment::arc(const Pose& via, const Pose& end, double blend) {
  PathSegment segment = linear(end, blend);
  segment.kind = Kind::kArc;
  segment.via = via;
  return segment;
}

Plan MotionPlanner::plan_linear(const std::array<double, 6>& start, const std::vector<Pose>& poses,
                                const PlanOptions& options) const {
  motion::check_course(poses.size());
  std::vector<PathSegment> segments;
  segments.reserve(poses.size());
  for (const Pose& pose : poses) {
    segments.push_back(PathSegment::linear(pose));
  }
  return plan_path(start, segments, options);
}

Plan MotionPlanner::plan_arc(const std::array<double, 6>& start, const Pose& via, const Pose& end,
                             const PlanOptions& options) const {
  return plan_path(start, {PathSegment::arc(via, end)}, options);
}

Plan MotionPlanner::plan_path(const std::array<double, 6>& start,
                              const std::vector<PathSegment>& segments,
                              const PlanOptions& options) const {
  motion::check_start(start);
  motion::check_options(options);
  auto runs = motion::PathBuilder(model_, limits_, segments).build(start);
  if (runs.empty()) {
    std::vector<PlanSample> rest(motion::count_plan_samples(options.duration_s), {start, {}, {}});
    return motion::make_plan(std::move(rest), options.duration_s, model_, limits_);
  }
  motion::PathMotion path(std::move(runs), limits_);
  if (options.duration_s > 0.0) {
    path.stretch_to(options.duration_s);
  }
  const double duration_s = options.duration_s > 0.0 ? options.duration_s : path.duration_s();
  return motion::make_plan(path.samples(), duration_s, model_, limits_);
}

}  // namespace kelvara
