// How exactly the simulated arm follows plans and streams, in closed loop.

#include "support/planned_motion.hpp"

#include <cmath>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace {

using kelvara::JointArray;
using kelvara::MotionHandle;
using kelvara::MotionLimits;
using kelvara::MotionOutcome;
using kelvara::MotionPlanner;
using kelvara::Plan;
using kelvara::Pose;
using kelvara::damiao_motor::MIT_MODE;
using kelvara::damiao_motor::POS_VEL_MODE;

constexpr double kPeriodS = 0.0025;

// ---- Accuracy -------------------------------------------------------------

/// 1 rad in 0.6 s, which takes wider limits than the shipped ones.
TEST(PlannedMotion, KeepsJointOneWithinThreeMilliradiansOnAFastMove) {
  ClosedLoop loop(MIT_MODE);
  go(loop, kReady);
  MotionLimits limits = loop.impl->motions->limits(1.0);
  limits.velocity.fill(4.0);
  limits.acceleration.fill(25.0);
  limits.jerk.fill(400.0);
  const MotionPlanner planner(loop.impl->kinematics, limits);
  JointArray target = loop.impl->arm_state().q_command;
  target[0] += 1.0;
  const Plan plan = planner.plan_joint(loop.impl->arm_state().q_command, target, {0.6});
  const MotionHandle motion = loop.impl->motions->execute(plan);
  double sum = 0.0;
  int count = 0;
  for (; !motion.is_done() && count < 1000; ++count) {
    const double commanded = loop.impl->arm_state().q_command[0];
    const double error = loop.true_positions()[0] - commanded;
    sum += error * error;
    loop.cycle();
  }
  EXPECT_NEAR(count * kPeriodS, 0.6, 0.01);
  const double rms = std::sqrt(sum / count);
  RecordProperty("joint_1_error_mrad_rms", std::to_string(1e3 * rms));
  EXPECT_LE(rms, 3e-3);
}

/// 30 cm to the right in front of the arm.
struct Line {
  std::array<double, 3> from{0.4, 0.15, 0.15}, to{0.4, -0.15, 0.15};
  Pose pose(const std::array<double, 3>& position) const { return {position, {0.0, 0.6, 0.0}}; }
  double distance(const std::array<double, 3>& point) const {
    double along = 0.0, length = 0.0;
    for (std::size_t k = 0; k < 3; ++k) {
      along += (point[k] - from[k]) * (to[k] - from[k]);
      length += (to[k] - from[k]) * (to[k] - from[k]);
    }
    const double s = std::min(1.0, std::max(0.0, along / length));
    double sum = 0.0;
    for (std::size_t k = 0; k < 3; ++k) {
      const double off = point[k] - from[k] - s * (to[k] - from[k]);
      sum += off * off;
    }
    return std::sqrt(sum);
  }
};

/// Moves to the start of the line; returns the plan along it.
Plan go_to_start(ClosedLoop& loop, const Line& line) {
  go(loop, loop.impl->kinematics.solve_pose(line.pose(line.from), kReady));
  return loop.impl->motions->planner({1.0, 0.0})
      .plan_linear(loop.impl->arm_state().q_command, {line.pose(line.to)});
}

class StraightLine : public testing::TestWithParam<kelvara::damiao_motor::ControlMode> {};

/// 30 cm at 0.25 m/s with the shipped parameters.
TEST_P(StraightLine, StaysWithinTwoMillimetresOnTheArm) {
  ClosedLoop loop(GetParam());
  const Line line;
  const RobotKinematics& model = loop.impl->kinematics;
  const Plan plan = go_to_start(loop, line);
  EXPECT_NEAR(plan.report().peak_tool_speed, 0.25, 1e-3);
  const MotionHandle motion = loop.impl->motions->execute(plan);
  double farthest = 0.0;
  for (int k = 0; k < 2000 && !motion.is_done(); ++k) {
    loop.cycle();
    farthest = std::max(farthest, line.distance(model.pose(loop.true_positions()).position));
  }
  EXPECT_EQ(motion.wait_for(0.0), MotionOutcome::kDone);
  RecordProperty("farthest_mm", std::to_string(1e3 * farthest));
  EXPECT_LE(farthest, 2e-3);
}

INSTANTIATE_TEST_SUITE_P(EachMode, StraightLine, testing::Values(MIT_MODE, POS_VEL_MODE));

TEST(PlannedMotion, StopsALineOnTheLine) {
  ClosedLoop loop(MIT_MODE);
  const Line line;
  const RobotKinematics& model = loop.impl->kinematics;
  const Plan plan = go_to_start(loop, line);
  const MotionHandle motion = loop.impl->motions->execute(plan);
  loop.run(200);
  const MotionHandle stop = loop.impl->motions->stop();
  int cycles = 0;
  for (; cycles < 1000 && !stop.is_done(); ++cycles) {
    loop.cycle();
    EXPECT_LE(line.distance(model.pose(loop.impl->arm_state().q_command).position), 1e-4);
  }
  EXPECT_LT(cycles * kPeriodS, 0.5) << "it brakes";
  EXPECT_EQ(motion.wait_for(0.0), MotionOutcome::kStopped);
}

// ---- Streams --------------------------------------------------------------

/// Targets of a sine at 50 Hz that arrive up to a period late, then no more.
TEST(PlannedMotion, FollowsAStreamWithJitterAndBrakesWhenItStops) {
  std::mt19937 random(5);
  ClosedLoop loop(MIT_MODE);
  go(loop, kReady);
  const auto sine = [](double t) { return 0.3 * (1.0 - std::cos(2.0 * t)); };
  SmoothnessWatch watch(loop);
  double next_s = 0.0, late_s = 0.0, worst = 0.0;
  for (int k = 0; k < 1200; ++k) {
    const double t = k * kPeriodS;
    if (t >= next_s + late_s) {
      JointArray target = kReady;
      target[0] += sine(next_s);
      stream(loop, next_s, target);
      next_s += 0.02;
      late_s = std::uniform_real_distribution<double>(0.0, 0.02)(random);
    }
    loop.run(1, watch);
    if (t > 0.5) {
      const double lag = 0.03 + kPeriodS;  // one and a half periods of the stream
      worst = std::max(worst,
                       std::abs(loop.impl->arm_state().q_command[0] - kReady[0] - sine(t - lag)));
    }
  }
  EXPECT_LE(worst, 0.02);
  EXPECT_LE(watch.farthest_step(), 2.5 * kPeriodS);
  EXPECT_LE(watch.sharpest_turn(), 8.0 * kPeriodS * kPeriodS * 1.05);
  loop.run(300, watch);
  EXPECT_EQ(loop.impl->arm_state().dq_command, JointArray{}) << "the stream has stopped";
}

TEST(PlannedMotion, CatchesUpWithAStreamAtTheDefaultSpeed) {
  ClosedLoop loop(MIT_MODE);
  loop.impl->publish_follow(kReady, 0.0);
  const auto command = loop.impl->slot.snapshot({}).command;
  ASSERT_TRUE(std::holds_alternative<kelvara::motion::Follow>(command));
  EXPECT_EQ(std::get<kelvara::motion::Follow>(command).catch_up,
            loop.impl->setup.joint_trajectory.default_speed_percent);
}

/// Targets that run at 1 rad/s to the limit of joint 1.
TEST(PlannedMotion, FollowsAStreamNoFartherThanTheJointLimits) {
  ClosedLoop loop(MIT_MODE);
  JointArray target = kReady;
  target[0] = 2.2;
  go(loop, target);
  const double limit = loop.impl->kinematics.joint_upper()[0];
  double farthest = 0.0;
  for (int k = 0; k < 600; ++k) {
    if (k % 4 == 0) {
      target[0] = std::min(2.2 + k * kPeriodS, limit);
      stream(loop, k * kPeriodS, target);
    }
    loop.run(1);
    farthest = std::max(farthest, loop.impl->arm_state().q_command[0]);
  }
  EXPECT_LE(farthest, limit + 1e-9);
  EXPECT_GT(farthest, limit - 0.01);
}

/// As another thread may, which does not know of the stop.
TEST(PlannedMotion, StopsAStreamThatGoesOn) {
  ClosedLoop loop(MIT_MODE);
  go(loop, kReady);
  const auto run_stream = [&](int cycles, double from_s) {
    for (int k = 0; k < cycles; ++k) {
      JointArray target = kReady;
      target[0] += 0.3 * (from_s + k * kPeriodS);
      if (k % 8 == 0) {
        stream(loop, from_s + k * kPeriodS, target);
      }
      loop.run(1);
    }
  };
  run_stream(200, 0.0);
  const MotionHandle stop = loop.impl->motions->stop();
  run_stream(400, 0.5);
  EXPECT_EQ(stop.wait_for(0.0), MotionOutcome::kDone);
  const JointArray rest = loop.impl->arm_state().q_command;
  EXPECT_GT(rest[0], kReady[0] + 0.05);
  run_stream(400, 1.5);
  EXPECT_EQ(loop.impl->arm_state().q_command, rest);
  loop.run(400);
  run_stream(200, 3.5);
  EXPECT_EQ(loop.impl->arm_state().q_command, rest) << "a pause does not start it again";
  run_stream(300, 0.5);
  EXPECT_GT(loop.impl->arm_state().q_command[0], rest[0] + 0.1) << "a new stream";
  finish(loop, loop.impl->motions->stop());
  finish(loop, move_joint(loop, kReady));
  run_stream(200, 1.5);
  EXPECT_GT(loop.impl->arm_state().q_command[0], kReady[0] + 0.1) << "after another motion";
}

}  // namespace
