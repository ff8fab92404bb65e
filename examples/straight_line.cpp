// Shows straight lines and arcs of the tool: plans them, prints what they demand of the arm,
// executes them, and prints how far the tool was from them. Usage: straight_line INTERFACE
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

#include <Eigen/Geometry>

#include <kelvara/arm_controller.hpp>
#include <kelvara/kinematics/kinematics.hpp>

#include "interrupt.hpp"

namespace {

using kelvara::MotionHandle;
using kelvara::MotionOutcome;
using kelvara::Plan;
using kelvara::Pose;

constexpr double kSpeed = 0.8;   // fraction of the joints' and the tool's speed limits
constexpr double kHeight = 0.3;  // m
const Pose kRight{{0.45, -0.15, kHeight}, {0.0, 0.3, 0.0}};
const Pose kLeft{{0.45, 0.15, kHeight}, {0.0, 0.3, 0.0}};
const Pose kTop{{0.45, 0.0, kHeight + 0.15}, {}};  // of the half circle from left to right

Eigen::Vector3d position(const Pose& pose) { return Eigen::Vector3d(pose.position.data()); }

double from_line(const Pose& pose) {
  const Eigen::Vector3d direction = (position(kLeft) - position(kRight)).normalized();
  return (position(pose) - position(kRight)).cross(direction).norm();
}

double from_arc(const Pose& pose) {
  const Eigen::Vector3d offset = position(pose) - 0.5 * (position(kLeft) + position(kRight));
  return std::hypot(offset.tail<2>().norm() - 0.15, offset.x());
}

void print_report(const char* name, const Plan& plan) {
  const kelvara::PlanReport& report = plan.report();
  double velocity = 0.0, torque = 0.0;  // largest fraction of a joint's limit
  for (std::size_t i = 0; i < 6; ++i) {
    velocity = std::max(velocity, report.peak_velocity[i] / report.velocity_limit[i]);
    torque = std::max(torque, report.peak_torque[i] / report.torque_limit[i]);
  }
  std::printf("%s: %.3f m in %.2f s, tool at most %.3f m/s; joints at most at %.0f %% of their\n",
              name, report.tool_path_m, plan.duration_s(), report.peak_tool_speed,
              100.0 * velocity);
  std::printf("  velocity and %.0f %% of their torque limits; smallest singular value %.3f\n",
              100.0 * torque, report.smallest_singular_value);
}

void finish(ArmController& arm, const MotionHandle& motion) {
  const MotionOutcome outcome = interrupt::wait(arm, motion);
  if (outcome != MotionOutcome::kDone) {
    throw std::runtime_error(std::string("the motion ended early: ") + to_string(outcome));
  }
}

/// Executes a plan and returns the largest distance of the measured tool from its path, m.
double follow(ArmController& arm, const char* name, const Plan& plan,
              double (*distance)(const Pose&)) {
  print_report(name, plan);
  const MotionHandle motion = arm.execute(plan);
  double worst = 0.0;
  while (!motion.is_done()) {
    interrupt::wait(arm, 0.005);
    worst = std::max(worst, distance(arm.pose()));
  }
  finish(arm, motion);
  return worst;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: straight_line INTERFACE\n";
    return 2;
  }
  kelvara::ArmOptions options;
  options.interface = argv[1];
  options.velocity_scale = 0.3;  // no joint faster than 3.1 rad/s
  try {
    interrupt::catch_signals();
    ArmController arm(options);
    const RobotKinematics model(arm.description_files().urdf_path,
                                arm.description_files().settings_path);
    finish(arm, arm.move_joint(model.solve_pose(kRight, arm.state().q_command)));

    const kelvara::MotionPlanner planner = arm.planner(kSpeed);
    const Plan line = planner.plan_linear(arm.state().q_command, {kLeft});
    const double off_line = follow(arm, "line", line, from_line);
    const Plan arc = planner.plan_arc(line.samples().back().q, kTop, kRight);
    const double off_arc = follow(arm, "arc", arc, from_arc);
    std::printf("measured at most %.2f mm from the line, %.2f mm from the arc\n", 1000.0 * off_line,
                1000.0 * off_arc);
    finish(arm, arm.move_joint({}));
  } catch (const std::exception& error) {
    std::cerr << "straight_line: " << error.what() << '\n';
    return 1;
  }
}
