// Joint plans: the profiles of six joints without their samples, beside a waypoint move's plan.

#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "kelvara/kinematics/kinematics.hpp"
#include "kelvara/motion/planner.hpp"

#include "motion/synchronised_profiles.hpp"
#include "motion/waypoint_planner.hpp"

namespace kelvara {
namespace {

/// A start in motion and a target.
struct Task {
  PlanSample start;
  JointArray target{};
};

const MotionLimits& limits() {
  static const MotionLimits shipped = MotionLimits::from_settings("config/robot_kinematics.yaml");
  return shipped;
}

std::vector<Task> tasks(double motion) {
  std::mt19937_64 random(5);
  std::uniform_real_distribution<double> part(-1.0, 1.0);
  std::vector<Task> list(1000);
  for (Task& task : list) {
    for (std::size_t j = 0; j < kJointCount; ++j) {
      task.start.q[j] = part(random);
      task.start.dq[j] = motion * part(random) * limits().velocity[j];
      task.start.ddq[j] = motion * part(random) * limits().acceleration[j];
      task.target[j] = part(random);
    }
  }
  return list;
}

void profiles_of(benchmark::State& state, double motion) {
  const std::vector<Task> list = tasks(motion);
  std::size_t k = 0;
  while (state.KeepRunning()) {
    const Task& task = list[++k % list.size()];
    benchmark::DoNotOptimize(
        motion::SynchronisedProfiles::move(task.start, task.target, limits(), {}));
  }
}

void JointProfilesFromRest(benchmark::State& state) { profiles_of(state, 0.0); }
BENCHMARK(JointProfilesFromRest);

void JointProfilesInMotion(benchmark::State& state) { profiles_of(state, 0.8); }
BENCHMARK(JointProfilesInMotion);

/// The peer: samples included.
void WaypointMove(benchmark::State& state) {
  const std::vector<Task> list = tasks(0.0);
  description::JointTrajectoryConfig config;
  config.max_vel_limits = limits().velocity;
  config.max_acc_limits = limits().acceleration;
  config.max_jerk_limits = limits().jerk;
  std::size_t k = 0;
  while (state.KeepRunning()) {
    const Task& task = list[++k % list.size()];
    benchmark::DoNotOptimize(motion::plan_waypoints(task.start.q, {task.target}, config, {}));
  }
}
BENCHMARK(WaypointMove);

/// Whole plans, with samples and report.
void JointPlan(benchmark::State& state) {
  const RobotKinematics model;
  const MotionPlanner planner(model, limits());
  const std::vector<Task> list = tasks(0.0);
  std::size_t k = 0;
  while (state.KeepRunning()) {
    const Task& task = list[++k % list.size()];
    benchmark::DoNotOptimize(planner.plan_joint(task.start.q, task.target, {10.0}));
  }
}
BENCHMARK(JointPlan)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace kelvara

BENCHMARK_MAIN();
