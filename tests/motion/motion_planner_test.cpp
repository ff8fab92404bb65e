#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "kelvara/kinematics/kinematics.hpp"
#include "kelvara/motion/planner.hpp"
#include "support/outcomes.hpp"
#include "support/temporary_directory.hpp"

#include "description/controller_settings.hpp"
#include "motion/drive_torque.hpp"
#include "motion/waypoint_planner.hpp"

namespace kelvara {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Planner : ::testing::Test {
  double in(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
  }
  JointArray point(double part = 1.0) {
    JointArray q;
    for (std::size_t j = 0; j < kJointCount; ++j) {
      const double middle = 0.5 * (model.joint_lower()[j] + model.joint_upper()[j]);
      q[j] = middle + part * in(-0.5, 0.5) * (model.joint_upper()[j] - model.joint_lower()[j]);
    }
    return q;
  }
  PlanSample state() {
    PlanSample sample{point(0.8), {}, {}};
    for (std::size_t j = 0; j < kJointCount; ++j) {
      sample.dq[j] = in(-0.8, 0.8) * limits.velocity[j];
      sample.ddq[j] = in(-0.8, 0.8) * limits.acceleration[j];
    }
    return sample;
  }
  std::vector<JointArray> points(std::size_t count, double part) {
    std::vector<JointArray> list(count);
    std::generate(list.begin(), list.end(), [&] { return point(part); });
    return list;
  }
  /// Position limits aside, which a start in motion may have to violate.
  void check_limits(const Plan& plan, const JointArray& end) const {
    const PlanReport& report = plan.report();
    for (std::size_t j = 0; j < kJointCount; ++j) {
      EXPECT_LE(report.peak_velocity[j], limits.velocity[j] * (1 + 1e-9));
      EXPECT_LE(report.peak_acceleration[j], limits.acceleration[j] * (1 + 1e-9));
      EXPECT_LE(report.peak_jerk[j], limits.jerk[j] * (1 + 1e-9) + 1e-6);
    }
    EXPECT_EQ(plan.samples().back().q, end);
    EXPECT_EQ(plan.samples().back().dq, JointArray{});
    EXPECT_EQ(plan.samples().back().ddq, JointArray{});
  }
  double waypoint_moves_duration(const JointArray& start, const std::vector<JointArray>& list) {
    description::JointTrajectoryConfig config;
    config.max_vel_limits = limits.velocity;
    config.max_acc_limits = limits.acceleration;
    config.max_jerk_limits = limits.jerk;
    const auto plan = motion::plan_waypoints(start, list, config, {});
    return static_cast<double>(plan.samples.size() - 1) * Plan::kSamplePeriodS;
  }
  template <typename Action>
  static MotionError refusal(Action action) {
    try {
      action();
    } catch (const MotionError& error) {
      return error;
    }
    return {MotionErrorCode::kCollision, "nothing was refused"};
  }

  RobotKinematics model;
  MotionLimits limits = MotionLimits::from_settings("config/robot_kinematics.yaml");
  MotionPlanner planner{model, limits};
  std::mt19937_64 random{7};
};

TEST_F(Planner, KeepsEveryLimitFromAnyState) {
  for (int k = 0; k < 1000; ++k) {
    const PlanSample start = state();
    const JointArray target = point();
    const Plan plan = planner.plan_joint(start, target);
    EXPECT_EQ(plan.samples().front().q, start.q);
    EXPECT_EQ(plan.samples().front().dq, start.dq);
    check_limits(plan, target);
    const Plan stop = planner.plan_stop(start);
    check_limits(stop, stop.samples().back().q);
    ASSERT_FALSE(HasFailure()) << "plan " << k;
  }
}

TEST_F(Planner, IsNeverSlowerThanWaypointMovesFromRestToRest) {
  for (int k = 0; k < 300; ++k) {
    const JointArray start = point();
    const JointArray target = point();
    EXPECT_LE(planner.plan_joint(start, target).duration_s(),
              waypoint_moves_duration(start, {target}));
  }
}

TEST_F(Planner, LetsAllJointsArriveTogetherAtARequestedTime) {
  const JointArray start{0.1, 0.4, -0.3, 0.2, 0.0, -0.5};
  const JointArray target{0.9, 0.5, -0.4, 0.5, -0.2, 0.5};
  const double shortest = planner.plan_joint(start, target).duration_s();
  for (const double duration : {shortest, 1.01 * shortest, 7.0}) {
    const Plan plan = planner.plan_joint(start, target, {duration});
    EXPECT_EQ(plan.duration_s(), duration);
    const PlanSample before = plan.at(duration - 0.01);
    for (std::size_t j = 0; j < kJointCount; ++j) {
      EXPECT_NE(before.dq[j], 0.0) << j;
    }
    check_limits(plan, target);
  }
  const MotionError error = refusal([&] { planner.plan_joint(start, target, {0.5 * shortest}); });
  EXPECT_EQ(error.code(), MotionErrorCode::kDurationTooShort);
  EXPECT_EQ(error.time_s(), shortest);
}

TEST_F(Planner, PassesViaPointsWithoutStoppingInLessTimeThanWaypointMoves) {
  for (int k = 0; k < 40; ++k) {
    const JointArray start = point(0.7);
    const auto via = points(2 + static_cast<std::size_t>(k) % 9, k % 2 == 0 ? 0.7 : 0.1);
    const Plan plan = planner.plan_waypoints(start, via);
    check_limits(plan, via.back());
    EXPECT_LE(plan.duration_s(), waypoint_moves_duration(start, via)) << k;
    std::size_t passed = 0;
    for (std::size_t i = 0; i < plan.samples().size() && passed < via.size(); ++i) {
      const PlanSample& sample = plan.samples()[i];
      bool hits = true;
      for (std::size_t j = 0; j < kJointCount; ++j) {
        hits = hits && std::abs(sample.q[j] - via[passed][j]) < 1e-9;
      }
      const auto moves = [](double dq) { return std::abs(dq) > 1e-3; };
      EXPECT_TRUE(!hits || passed + 1 == via.size() ||
                  std::any_of(sample.dq.begin(), sample.dq.end(), moves));
      passed += hits ? 1 : 0;
    }
    EXPECT_EQ(passed, via.size()) << k;
    const Plan slow = planner.plan_waypoints(start, via, {1.3 * plan.duration_s()});
    EXPECT_EQ(slow.duration_s(), 1.3 * plan.duration_s());
    check_limits(slow, via.back());
  }
}

TEST_F(Planner, KeepsThePositionLimitsBetweenViaPoints) {
  for (int k = 0; k < 20; ++k) {
    std::vector<JointArray> via = points(5, 0.4);
    via[1][1] = via[3][1] = model.joint_upper()[1];
    via[2][2] = model.joint_lower()[2];
    const Plan plan = planner.plan_waypoints(point(0.4), via);
    for (const PlanSample& sample : plan.samples()) {
      ASSERT_LE(sample.q[1], model.joint_upper()[1] + 1e-8);
      ASSERT_GE(sample.q[2], model.joint_lower()[2] - 1e-8);
    }
  }
}

TEST_F(Planner, RefusesWhatItCannotPlan) {
  JointArray target{};
  target[2] = model.joint_upper()[2] + 0.1;
  for (const MotionError& error :
       {refusal([&] { planner.plan_joint(JointArray{}, target); }), refusal([&] {
          planner.plan_waypoints({}, {JointArray{}, target});
        })}) {
    EXPECT_EQ(error.code(), MotionErrorCode::kJointLimit);
    EXPECT_EQ(error.joint(), 3);
  }
  target[2] = std::nan("");
  EXPECT_THROW(planner.plan_joint(JointArray{}, target), std::invalid_argument);
  EXPECT_THROW(planner.plan_joint(JointArray{}, {}, {-1.0}), std::invalid_argument);
  EXPECT_THROW(planner.plan_joint(JointArray{}, point(), {1e9}), std::length_error);
  EXPECT_THROW(planner.plan_waypoints({}, {point(), point()}, {1e9}), std::length_error);
  EXPECT_THROW(planner.plan_stop({target, {}, {}}), std::invalid_argument);
  MotionLimits bad = limits;
  bad.jerk[5] = 0.0;
  EXPECT_THROW(MotionPlanner(model, bad), std::invalid_argument);
  bad = limits;
  bad.tool_speed = kInfinity;
  EXPECT_THROW(MotionPlanner(model, bad), std::invalid_argument);
  bad = limits;
  bad.coulomb_friction[0] = std::nan("");
  EXPECT_THROW(MotionPlanner(model, bad), std::invalid_argument);
}

TEST_F(Planner, TakesAHundredTimesAsLongWithLimitsScaledToAHundredth) {
  const JointArray target{0.9, 0.5, -0.4, 0.5, -0.2, 0.5};
  const double whole = planner.plan_joint(JointArray{}, target).duration_s();
  const MotionPlanner slow(model, limits.scaled(1e-2));
  EXPECT_NEAR(slow.plan_joint(JointArray{}, target).duration_s(), 1e2 * whole, 1e-9 * whole);
  EXPECT_THROW(limits.scaled(0.0), std::invalid_argument);
  EXPECT_THROW(limits.scaled(1.1), std::invalid_argument);
  EXPECT_EQ(limits.scaled(0.5).rotor_inertia, limits.rotor_inertia);
}

TEST_F(Planner, ReportsWhatThePlanDemands) {
  const Plan plan =
      planner.plan_joint(JointArray{0, 0.3, -0.6, 0.3, 0.2, 0}, {1, 0.8, -0.2, 0.5, -0.6, 1});
  const auto drives =
      description::load_controller_settings("config/robot_kinematics.yaml").joint_dynamics;
  PlanReport expected;
  for (std::size_t k = 0; k < plan.samples().size(); ++k) {
    const PlanSample& sample = plan.samples()[k];
    const auto torque = model.dynamic_compensation_kdl({sample.q.begin(), sample.q.end()},
                                                       {sample.dq.begin(), sample.dq.end()},
                                                       {sample.ddq.begin(), sample.ddq.end()});
    const JointArray drive = motion::drive_torque(drives, sample.dq, sample.ddq);
    for (std::size_t j = 0; j < kJointCount; ++j) {
      expected.peak_torque[j] = std::max(expected.peak_torque[j], std::abs(torque[j] + drive[j]));
    }
    if (k > 0) {
      const Pose from = model.pose(plan.samples()[k - 1].q);
      const Pose to = model.pose(sample.q);
      expected.tool_path_m +=
          std::hypot(to.position[0] - from.position[0], to.position[1] - from.position[1],
                     to.position[2] - from.position[2]);
    }
  }
  for (std::size_t j = 0; j < kJointCount; ++j) {
    EXPECT_NEAR(plan.report().peak_torque[j], expected.peak_torque[j], 1e-9);
    EXPECT_EQ(plan.report().velocity_limit[j], limits.velocity[j]);
  }
  EXPECT_NEAR(plan.report().tool_path_m, expected.tool_path_m, 1e-5);
  EXPECT_GT(plan.report().smallest_singular_value, 0.0);
  const Plan stretched = planner.plan_joint(JointArray{}, {0, 0, 0, 0, 0, 1.5});
  EXPECT_NEAR(stretched.report().tool_rotation_rad, 1.5, 1e-5) << "one joint turns the tool";
}

TEST(MotionLimits, ReadsTheOptionalLimitsOfTheTool) {
  std::ifstream file("config/robot_kinematics.yaml");
  const std::string settings{std::istreambuf_iterator<char>(file), {}};
  const TemporaryWorkingDirectory directory;
  directory.write("plain.yaml", settings);
  directory.write("tool.yaml", settings + "\nmotion:\n  tool_speed: 0.5\n");
  directory.write("bad.yaml", settings + "\nmotion:\n  tool_jerk: -1\n");
  const MotionLimits plain = MotionLimits::from_settings("plain.yaml");
  EXPECT_EQ(plain.velocity, (JointArray{2.5, 2.5, 2.5, 4.0, 4.0, 4.0}));
  EXPECT_EQ(plain.torque, (JointArray{20.0, 20.0, 20.0, 7.0, 5.0, 5.0}));
  EXPECT_EQ(plain.tool_speed, 0.25);
  EXPECT_EQ(MotionLimits::from_settings("tool.yaml").tool_speed, 0.5);
  EXPECT_EQ(error_of([] { MotionLimits::from_settings("bad.yaml"); }),
            "Invalid motion config at bad.yaml: tool_jerk must be a positive number");
}

}  // namespace
}  // namespace kelvara
