#include "controller/setpoint.hpp"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace kelvara::controller {
namespace {

using damiao_motor::MIT_MODE;
using damiao_motor::POS_VEL_MODE;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct SetPointTest : ::testing::Test {
  SetPointTest() {
    limits.velocity.fill(2.0);
    limits.acceleration.fill(10.0);
    limits.joints.lower.fill(-1.0);
    limits.joints.upper.fill(1.0);
    limits.joints.has_limit.set();
    limits.joints.has_limit.reset(5);
    measured = {0.1, 0.2, 0.3, -0.1, -0.2, -0.3};
  }

  SetPoint at(double seconds, damiao_motor::ControlMode mode = MIT_MODE) {
    const auto elapsed =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    return evaluate_setpoint(command, measured, TimePoint{} + elapsed, limits, mode, reference);
  }

  void begin_move(const JointArray& start, const JointArray& target, double duration) {
    command.begin_command(kSmoothMove);
    command.traj_start_q = start;
    command.target_q = target;
    command.traj_duration_s = duration;
  }

  CommandSlot command;
  JointArray measured{};
  SetPointLimits limits;
  MitReference reference;
};

TEST_F(SetPointTest, SmoothMoveFollowsTheSepticBlend) {
  const JointArray start{-0.5, 0, 0, 0, 0, 0};
  const JointArray target{0.5, 0.2, 0, 0, 0, 4.0};
  begin_move(start, target, 2.0);
  for (int step = 0; step <= 40; ++step) {
    const double t = step / 20.0;
    const double s = t / 2.0;
    const double blend =
        35 * std::pow(s, 4) - 84 * std::pow(s, 5) + 70 * std::pow(s, 6) - 20 * std::pow(s, 7);
    const double rate = 140 / 2.0 * std::pow(s * (1 - s), 3);
    const SetPoint point = at(t);
    EXPECT_NEAR(point.q[0], -0.5 + blend, 1e-12) << t;
    EXPECT_NEAR(point.dq[0], rate, 1e-12) << t;
    EXPECT_NEAR(point.velocity_limit[5], std::min(4.0 * rate, 2.0), 1e-12) << t;
    EXPECT_EQ(point.completed, t >= 2.0) << t;
    // The feed-forward is gravity where the arm is, not where it is sent.
    EXPECT_EQ(point.model_q, measured);
    EXPECT_EQ(point.model_dq, JointArray{});
    EXPECT_EQ(point.model_ddq, JointArray{});
  }
  EXPECT_EQ(at(9.0).q, target);
}

TEST_F(SetPointTest, CommandsWithoutMotionHoldTheMeasuredPositions) {
  const auto expect_hold = [&](const SetPoint& point) {
    EXPECT_EQ(point.q, measured);
    EXPECT_EQ(point.dq, JointArray{});
    EXPECT_EQ(point.velocity_limit, JointArray{});
    EXPECT_EQ(point.model_q, measured);
    EXPECT_FALSE(point.completed);
    EXPECT_FALSE(point.torque_only);
  };
  expect_hold(at(1.0));
  for (const double duration : {0.0, 1e-6, -1.0, kNaN}) {
    begin_move({}, {0.5, 0.5, 0.5, 0.5, 0.5, 0.5}, duration);
    expect_hold(at(1.0));
  }
  command.begin_command(kWaypointTrajectory);
  expect_hold(at(1.0));
  command.waypoints = std::make_shared<std::vector<WaypointTrajectorySample>>();
  expect_hold(at(1.0));
}

TEST_F(SetPointTest, PlaysOneWaypointSamplePerPeriodAndEndsAtTheLast) {
  auto samples = std::make_shared<std::vector<WaypointTrajectorySample>>(3);
  for (std::size_t k = 0; k < samples->size(); ++k) {
    (*samples)[k].q.fill(0.6 * static_cast<double>(k));
    (*samples)[k].dq.fill(-3.0);
    (*samples)[k].ddq.fill(7.0);
  }
  command.begin_command(kWaypointTrajectory);
  command.waypoints = samples;
  command.waypoint_dt_s = 0.01;
  const SetPoint middle = at(0.0199);
  EXPECT_EQ(middle.q[0], 0.6);
  EXPECT_EQ(middle.dq[0], -3.0);
  EXPECT_EQ(middle.velocity_limit[0], 2.0);
  EXPECT_EQ(middle.model_ddq[0], 7.0);
  EXPECT_EQ(middle.model_q, middle.q);
  EXPECT_FALSE(middle.completed);
  const SetPoint last = at(1e6);
  EXPECT_TRUE(last.completed);
  EXPECT_EQ(last.q[0], 1.0) << "clamped to the joint limit";
  EXPECT_EQ(last.q[5], 1.2) << "a joint without limits";
}

TEST_F(SetPointTest, MitReferenceApproachesATargetWithinItsLimitsAndStopsThere) {
  command.begin_command(kJointTarget);
  command.target_q = {5.0, 0.2, -0.3, 0.4, -5.0, 3.0};
  const JointArray end{1.0, 0.2, -0.3, 0.4, -1.0, 3.0};
  JointArray last_q = measured;
  JointArray last_dq{};
  for (int cycle = 0; cycle < 4000; ++cycle) {
    const SetPoint point = at(0.0);
    for (std::size_t i = 0; i < kJointCount; ++i) {
      ASSERT_LE(std::abs(point.dq[i]), 2.0 + 1e-12) << "joint " << i << " cycle " << cycle;
      ASSERT_LE(std::abs(point.dq[i] - last_dq[i]), 10.0 * kControlPeriodS + 1e-12);
      ASSERT_LE(std::abs(point.q[i] - last_q[i]), 2.0 * kControlPeriodS + 1e-12);
    }
    last_q = point.q;
    last_dq = point.dq;
  }
  for (std::size_t i = 0; i < kJointCount; ++i) {
    EXPECT_NEAR(last_q[i], end[i], 1e-6) << "joint " << i;
  }
}

TEST_F(SetPointTest, EveryMoveLetsTheMitReferenceGoSoThatTheNextHoldStartsWhereTheArmIs) {
  command.begin_command(kJointTarget);
  command.target_q = measured;
  at(0.0);
  EXPECT_TRUE(reference.initialised);
  for (const CommandType type : {kSmoothMove, kWaypointTrajectory, kChainGravity, kNoCommand}) {
    reference = {true, {9, 9, 9, 9, 9, 9}, {1, 1, 1, 1, 1, 1}};
    command.begin_command(type);
    at(0.0);
    EXPECT_FALSE(reference.initialised) << type;
    EXPECT_EQ(reference.dq, JointArray{}) << type;
  }
  measured.fill(0.7);
  command.begin_command(kJointTarget);
  command.target_q.fill(0.7);
  EXPECT_EQ(at(0.0).q, measured);
}

TEST(Clamp, LetsTheLowerBoundWinAndTurnsNanIntoIt) {
  EXPECT_EQ(clamp(5, 10, 0), 10);
  EXPECT_EQ(clamp(kNaN, -1, 1), -1);
  JointLimits limits;
  limits.has_limit.set(0);
  limits.upper[0] = 1.0;
  EXPECT_EQ(limits.clamp_joint(0, 7.0), 1.0);
  EXPECT_EQ(limits.clamp_joint(1, 7.0), 7.0);
  EXPECT_TRUE(std::isnan(limits.clamp_joint(0, kNaN)));
}

}  // namespace
}  // namespace kelvara::controller
