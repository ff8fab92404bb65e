#include "motion/plan_report.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include <Eigen/Core>
#include <Eigen/Eigenvalues>

#include "description/controller_settings.hpp"
#include "description/joint_array.hpp"
#include "motion/drive_torque.hpp"
#include "motion/waypoint_move.hpp"

namespace kelvara::motion {
namespace {

using Matrix6 = Eigen::Matrix<double, 6, 6, Eigen::RowMajor>;
using Vector6 = Eigen::Matrix<double, 6, 1>;

constexpr std::size_t kMaxSamples = kMaxPlanBytes / sizeof(PlanSample);
// Of a period: a duration that exceeds a sample's time by less ends at that sample.
constexpr double kRounding = 1e-9;

void raise(double& peak, double value) { peak = std::max(peak, std::abs(value)); }

/// The smallest singular value of a Jacobian.
double smallest_singular_value(const Matrix6& J) {
  const Eigen::SelfAdjointEigenSolver<Eigen::Matrix<double, 6, 6>> solver(J * J.transpose(),
                                                                          Eigen::EigenvaluesOnly);
  return std::sqrt(std::max(solver.eigenvalues()[0], 0.0));
}

/// The tool's speeds in one sample.
struct ToolSpeed {
  double linear = 0.0;   // m/s
  double angular = 0.0;  // rad/s
};

/// Adds what one sample demands of the joints.
void add_joints(const RobotKinematics& model, const description::JointDynamicsConfig& drives,
                const PlanSample& sample, PlanReport& report) {
  const JointArray drive = drive_torque(drives, sample.dq, sample.ddq);
  JointArray torque{};
  model.inverse_dynamics(sample.q.data(), sample.dq.data(), sample.ddq.data(), torque.data());
  for (std::size_t i = 0; i < kJointCount; ++i) {
    raise(report.peak_velocity[i], sample.dq[i]);
    raise(report.peak_acceleration[i], sample.ddq[i]);
    raise(report.peak_torque[i], torque[i] + drive[i]);
  }
}

/// Adds what one sample makes of the tool's motion.
ToolSpeed add_tool(const RobotKinematics& model, const PlanSample& sample, PlanReport& report) {
  const auto jacobian = model.jacobian(sample.q);
  const Eigen::Map<const Matrix6> J(jacobian.front().data());
  const Vector6 twist = J * Eigen::Map<const Vector6>(sample.dq.data());
  const ToolSpeed speed{twist.head<3>().norm(), twist.tail<3>().norm()};
  report.smallest_singular_value =
      std::min(report.smallest_singular_value, smallest_singular_value(J));
  raise(report.peak_tool_speed, speed.linear);
  raise(report.peak_tool_angular_speed, speed.angular);
  return speed;
}

/// Adds what lies between two samples.
void add_step(const PlanSample& from, const PlanSample& to, double step_s, PlanReport& report) {
  for (std::size_t i = 0; step_s > 0.0 && i < kJointCount; ++i) {
    raise(report.peak_jerk[i], (to.ddq[i] - from.ddq[i]) / step_s);
  }
}

PlanReport report_limits(const MotionLimits& limits) {
  PlanReport report;
  report.velocity_limit = limits.velocity;
  report.acceleration_limit = limits.acceleration;
  report.jerk_limit = limits.jerk;
  report.torque_limit = limits.torque;
  return report;
}

}  // namespace

std::size_t count_plan_samples(double duration_s) {
  const double periods = std::ceil(duration_s / Plan::kSamplePeriodS - kRounding);
  if (!(periods < static_cast<double>(kMaxSamples))) {  // or NaN
    throw std::length_error("the plan would be too large");
  }
  return static_cast<std::size_t>(std::max(periods, 0.0)) + 1;
}

double plan_sample_time_s(std::size_t index, double duration_s) {
  return std::min(static_cast<double>(index) * Plan::kSamplePeriodS, duration_s);
}

Plan make_plan(std::vector<PlanSample> samples, double duration_s, const RobotKinematics& model,
               const MotionLimits& limits) {
  const description::JointDynamicsConfig drives{limits.rotor_inertia, limits.viscous_friction,
                                                limits.coulomb_friction};
  PlanReport report = report_limits(limits);
  report.smallest_singular_value = samples.empty() ? 0.0 : HUGE_VAL;
  ToolSpeed before;
  for (std::size_t k = 0; k < samples.size(); ++k) {
    add_joints(model, drives, samples[k], report);
    const ToolSpeed speed = add_tool(model, samples[k], report);
    if (k > 0) {
      const double step_s =
          plan_sample_time_s(k, duration_s) - plan_sample_time_s(k - 1, duration_s);
      add_step(samples[k - 1], samples[k], step_s, report);
      report.tool_path_m += 0.5 * step_s * (before.linear + speed.linear);
      report.tool_rotation_rad += 0.5 * step_s * (before.angular + speed.angular);
    }
    before = speed;
  }
  return Plan(std::move(samples), duration_s, report);
}

}  // namespace kelvara::motion
