// How long the planning of tool paths takes, with the length of the plan.

#include <benchmark/benchmark.h>

#include "kelvara/kinematics/kinematics.hpp"
#include "kelvara/motion/planner.hpp"

namespace {

using kelvara::PathSegment;
using kelvara::Plan;
using kelvara::Pose;

const RobotKinematics& model() {
  static const RobotKinematics instance;
  return instance;
}

kelvara::MotionPlanner planner() {
  const std::string& settings = model().description_files().settings_path;
  return {model(), kelvara::MotionLimits::from_settings(settings)};
}

Pose moved(const std::array<double, 6>& q, double x, double y, double z) {
  Pose pose = model().pose(q);
  pose.position[0] += x;
  pose.position[1] += y;
  pose.position[2] += z;
  return pose;
}

void report(benchmark::State& state, const Plan& plan) {
  state.counters["duration_s"] = plan.duration_s();
  state.counters["samples"] = static_cast<double>(plan.samples().size());
}

void plan_line_of_300_mm(benchmark::State& state) {
  const auto planning = planner();
  const Pose end = moved({}, -0.3, 0.0, 0.0);
  Plan plan;
  while (state.KeepRunning()) {
    plan = planning.plan_linear({}, {end});
  }
  report(state, plan);
}
BENCHMARK(plan_line_of_300_mm)->Unit(benchmark::kMillisecond);

void plan_line_past_a_singularity(benchmark::State& state) {
  const auto planning = planner();
  const std::array<double, 6> start{1.2, 1.7, -0.9, -0.7, 1.3, 0.6};
  const Pose end = moved(start, 0.0, -0.4, 0.0);
  Plan plan;
  while (state.KeepRunning()) {
    plan = planning.plan_linear(start, {end});
  }
  report(state, plan);
}
BENCHMARK(plan_line_past_a_singularity)->Unit(benchmark::kMillisecond);

void plan_four_lines_with_blends(benchmark::State& state) {
  const auto planning = planner();
  const std::vector<PathSegment> segments{PathSegment::linear(moved({}, -0.1, 0.0, 0.0), 0.02),
                                          PathSegment::linear(moved({}, -0.1, 0.1, 0.0), 0.02),
                                          PathSegment::linear(moved({}, -0.1, 0.1, -0.1), 0.02),
                                          PathSegment::linear(moved({}, 0.0, 0.0, 0.0))};
  Plan plan;
  while (state.KeepRunning()) {
    plan = planning.plan_path({}, segments);
  }
  report(state, plan);
}
BENCHMARK(plan_four_lines_with_blends)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
