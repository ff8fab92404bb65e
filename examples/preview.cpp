// Shows plans without an arm: makes one from joint moves, lines and an arc, prints what it demands
// of each joint, and writes its samples to a file; tools/preview/plot_plan.py draws them. Then
// shows a plan that is refused. No bus is used and nothing moves. Usage: preview [PLAN.csv]
#include <array>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include <kelvara/kinematics/kinematics.hpp>
#include <kelvara/motion/planner.hpp>

namespace {

using kelvara::PathSegment;
using kelvara::Plan;
using kelvara::PlanReport;

using Joints = std::array<double, 6>;

/// A joint move from home, a line to the left and one up with a rounded corner between them, and an
/// arc back.
Plan make_plan(const kelvara::MotionPlanner& planner, const RobotKinematics& model) {
  const Joints home{};
  const kelvara::Pose start{{0.40, -0.15, 0.25}, {0.0, 0.4, 0.0}};
  const kelvara::Pose corner{{0.40, 0.05, 0.25}, {0.0, 0.4, 0.0}};
  const kelvara::Pose high{{0.40, 0.05, 0.35}, {0.0, 0.4, 0.0}};
  const kelvara::Pose via{{0.47, -0.05, 0.35}, {}};
  const kelvara::Pose end{{0.40, -0.15, 0.35}, {0.0, 0.4, 0.0}};
  return planner.plan_path(home, {PathSegment::joint(model.solve_pose(start, home)),
                                  PathSegment::linear(corner, /*blend=*/0.03),
                                  PathSegment::linear(high, 0.03), PathSegment::arc(via, end)});
}

void print_cell(double peak, double limit) {
  std::printf(" %8.2f %4.0f %%", peak, 100.0 * peak / limit);
}

void print_report(const Plan& plan) {
  const PlanReport& report = plan.report();
  std::printf("%zu samples, %.3f s; the tool moves %.3f m, at most at %.3f m/s\n",
              plan.samples().size(), plan.duration_s(), report.tool_path_m, report.peak_tool_speed);
  std::printf("smallest singular value of the Jacobian: %.3f\n", report.smallest_singular_value);
  std::puts("peaks, and what they are of the limits");
  std::puts("  joint  velocity rad/s    accel. rad/s^2     jerk rad/s^3      torque N m");
  for (std::size_t i = 0; i < 6; ++i) {
    std::printf("  %5zu", i + 1);
    print_cell(report.peak_velocity[i], report.velocity_limit[i]);
    print_cell(report.peak_acceleration[i], report.acceleration_limit[i]);
    print_cell(report.peak_jerk[i], report.jerk_limit[i]);
    print_cell(report.peak_torque[i], report.torque_limit[i]);
    std::puts("");
  }
}

void write_row(std::ofstream& file, const Joints& values) {
  for (const double value : values) {
    file << ',' << value;
  }
}

/// Rows of time (s), joint angles, velocities and accelerations, and the tool's position (m).
void write_csv(const std::string& path, const Plan& plan, const RobotKinematics& model) {
  std::ofstream file(path);
  file.precision(9);
  file << "time_s";
  for (const char* quantity : {"q", "dq", "ddq"}) {
    for (int joint = 1; joint <= 6; ++joint) {
      file << ',' << quantity << '_' << joint;
    }
  }
  file << ",x,y,z\n";
  for (std::size_t k = 0; k < plan.samples().size(); ++k) {
    const kelvara::PlanSample& sample = plan.samples()[k];
    const auto tool = model.pose(sample.q).position;
    file << plan.sample_time_s(k);
    for (const Joints& values : {sample.q, sample.dq, sample.ddq}) {
      write_row(file, values);
    }
    file << ',' << tool[0] << ',' << tool[1] << ',' << tool[2] << '\n';
  }
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + path);
  }
}

/// A line that leaves the arm's reach: a plan says where before anything moves.
bool is_refused(const kelvara::MotionPlanner& planner, const Joints& start) {
  try {
    planner.plan_linear(start, {{{0.90, -0.15, 0.35}, {0.0, 0.4, 0.0}}});
    return false;
  } catch (const kelvara::MotionError& error) {
    std::printf("refused (%s): %s\n", to_string(error.code()), error.what());
    return true;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2) {
    std::cerr << "usage: preview [PLAN.csv]\n";
    return 2;
  }
  try {
    const RobotKinematics model;
    const auto limits =
        kelvara::MotionLimits::from_settings(model.description_files().settings_path);
    const kelvara::MotionPlanner planner(model, limits);
    const Plan plan = make_plan(planner, model);
    print_report(plan);
    if (argc == 2) {
      write_csv(argv[1], plan, model);
    }
    return is_refused(planner, plan.samples().back().q) ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << "preview: " << error.what() << '\n';
    return 1;
  }
}
