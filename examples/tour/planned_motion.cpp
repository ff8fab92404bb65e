#include "tour/planned_motion.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <stdexcept>

#include "interrupt.hpp"

namespace tour {
namespace {

using kelvara::MotionHandle;
using kelvara::MotionOutcome;
using kelvara::Plan;
using kelvara::Pose;

constexpr kelvara::MoveOptions kFast{0.8, 0.0};  // 80 % of the speed limits
constexpr double kOverride = 0.4;
constexpr double kRestS = 0.5;
constexpr double kX = 0.45, kRadius = 0.15, kHeight = 0.30;  // m
const Pose kRight{{kX, -kRadius, kHeight}, {0.0, 0.3, 0.0}};
const Pose kLeft{{kX, kRadius, kHeight}, {0.0, 0.3, 0.0}};
const Pose kTop{{kX, 0.0, kHeight + kRadius}, {}};

double from_line(const Pose& pose) {
  return std::hypot(pose.position[0] - kX, pose.position[2] - kHeight);
}

double from_arc(const Pose& pose) {
  const double radius = std::hypot(pose.position[1], pose.position[2] - kHeight);
  return std::hypot(pose.position[0] - kX, radius - kRadius);
}

}  // namespace

PlannedMotion::PlannedMotion(ArmController& arm, Results& results)
    : arm_(arm),
      results_(results),
      model_(arm.description_files().urdf_path, arm.description_files().settings_path) {}

void PlannedMotion::move_joints() {
  const std::array<double, 6> target = model_.solve_pose(kRight, arm_.state().q_command);
  interrupt::wait(arm_, arm_.move_joint(target, kFast));
  interrupt::wait(arm_, kRestS);
  double error = 0.0;
  for (std::size_t i = 0; i < 6; ++i) {
    error = std::max(error, std::abs(arm_.joint_positions()[i] - target[i]));
  }
  results_.note("joint move", "largest joint error", error, "rad");
}

void PlannedMotion::draw_line_and_arc() {
  const double off_line = trace("line", arm_.move_linear(kLeft, kFast), from_line);
  results_.note("line", "largest distance from it", off_line, "m");
  interrupt::wait(arm_, kRestS);
  const double off_arc = trace("arc", arm_.move_arc(kTop, kRight, kFast), from_arc);
  results_.note("arc", "largest distance from it", off_arc, "m");
  interrupt::wait(arm_, kRestS);
}

void PlannedMotion::stop_and_continue() {
  const MotionHandle line = arm_.move_linear(kLeft, kFast);
  while (line.progress() < 0.5 && !line.is_done()) {
    interrupt::wait(arm_, 0.005);
  }
  const double off_line = trace("stop", arm_.stop(), from_line);
  results_.note("stop", "largest distance from the line", off_line, "m");
  interrupt::wait(arm_, kRestS);
  results_.note("stop", "way that is left", kLeft.position[1] - arm_.pose().position[1], "m");

  const Plan rest = arm_.planner(kFast.speed).plan_linear(arm_.state().q_command, {kLeft});
  arm_.set_speed_override(kOverride);
  const auto begin = interrupt::Clock::now();
  trace("speed override", arm_.execute(rest), from_line);
  const double took = std::chrono::duration<double>(interrupt::Clock::now() - begin).count();
  arm_.set_speed_override(1.0);
  results_.note("speed override", "time, of that at full speed", took / rest.duration_s(), "times");
}

double PlannedMotion::trace(const std::string& step, const MotionHandle& motion,
                            double (*distance)(const Pose&)) {
  double worst = 0.0;
  while (!motion.is_done()) {
    interrupt::wait(arm_, 0.005);
    worst = std::max(worst, distance(arm_.pose()));
  }
  const MotionOutcome outcome = interrupt::wait(arm_, motion);
  if (outcome != MotionOutcome::kDone) {
    throw std::runtime_error(step + ": " + to_string(outcome));
  }
  return worst;
}

}  // namespace tour
