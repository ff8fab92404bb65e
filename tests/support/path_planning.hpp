#pragma once

#include <cmath>
#include <functional>
#include <random>

#include <gtest/gtest.h>

#include "kelvara/kinematics/kinematics.hpp"
#include "kelvara/motion/planner.hpp"
#include "kinematics/six_joint_chain.hpp"

#include "motion/rotation_vector.hpp"

namespace kelvara {

using kinematics::Frame;
using kinematics::norm;
using kinematics::Vector3;

/// A planner for the arm as it is configured, and what its plans must keep.
struct PathPlanning : ::testing::Test {
  static MotionLimits arm_limits() {
    MotionLimits limits;
    limits.velocity = {2.5, 2.5, 2.5, 4.0, 4.0, 4.0};
    limits.acceleration = {8.0, 8.0, 8.0, 15.0, 15.0, 15.0};
    limits.jerk = {80.0, 80.0, 80.0, 150.0, 150.0, 150.0};
    return limits;
  }

  Frame tool(const JointArray& q) const { return kinematics::six_joint_chain(model).tool_frame(q); }

  static Pose moved(const Frame& frame, const Vector3& way, const Vector3& turn = {}) {
    return kinematics::pose_of({motion::rotation_of(turn) * frame.rotation, frame.position + way});
  }

  Vector3 vector(double size) {
    return size * kinematics::normalized({part(random), part(random), part(random)});
  }

  JointArray random_angles() {
    JointArray q;
    for (std::size_t i = 0; i < kJointCount; ++i) {
      const double lower = model.joint_lower()[i];
      const double upper = model.joint_upper()[i];
      q[i] = 0.5 * (lower + upper) + 0.45 * (upper - lower) * part(random);
    }
    return q;
  }

  double tool_speed(const PlanSample& sample) const {
    const auto J = model.jacobian(sample.q);
    Vector3 v;
    for (std::size_t i = 0; i < kJointCount; ++i) {
      v = v + sample.dq[i] * Vector3{J[0][i], J[1][i], J[2][i]};
    }
    return norm(v);
  }

  /// Rest at both ends, the joints' limits at and between all samples, and rates that fit.
  static void expect_sound(const Plan& plan, const MotionLimits& limits) {
    const auto& samples = plan.samples();
    for (const PlanSample* end : {&samples.front(), &samples.back()}) {
      EXPECT_EQ(end->dq, JointArray{});
      EXPECT_EQ(end->ddq, JointArray{});
    }
    for (std::size_t k = 1; k < samples.size(); ++k) {
      const double h = plan.sample_time_s(k) - plan.sample_time_s(k - 1);
      for (std::size_t i = 0; i < kJointCount; ++i) {
        const auto& [q0, dq0, ddq0] = samples[k - 1];
        const auto& [q, dq, ddq] = samples[k];
        ASSERT_LE(std::abs(dq[i]), limits.velocity[i] * (1 + 1e-6)) << k;
        ASSERT_LE(std::abs(ddq[i]), limits.acceleration[i] * (1 + 1e-6)) << k;
        ASSERT_LE(std::abs(ddq[i] - ddq0[i]) / h, limits.jerk[i] * (1 + 1e-6)) << k;
        ASSERT_NEAR(q[i] - q0[i], 0.5 * h * (dq[i] + dq0[i]), limits.jerk[i] * h * h * h / 6) << k;
        ASSERT_NEAR(dq[i] - dq0[i], 0.5 * h * (ddq[i] + ddq0[i]), limits.jerk[i] * h * h) << k;
      }
    }
  }

  /// Calls `check` with the tool's frame and its speed at and between the samples.
  void along(const Plan& plan, const std::function<void(const Frame&, double)>& check) const {
    for (double t = 0.0; t < plan.duration_s(); t += 0.3 * Plan::kSamplePeriodS) {
      const PlanSample sample = plan.at(t);
      check(tool(sample.q), tool_speed(sample));
    }
  }

  RobotKinematics model;
  MotionLimits limits = arm_limits();
  MotionPlanner planner{model, limits};
  std::mt19937 random{11};
  std::uniform_real_distribution<double> part{-1.0, 1.0};
};

}  // namespace kelvara
