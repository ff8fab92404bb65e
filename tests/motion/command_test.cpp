#include "motion/command.hpp"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "description/timing.hpp"

namespace kelvara::motion {
namespace {

using description::clamp;
using description::JointLimits;
using description::kControlPeriodS;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct CommandTest : ::testing::Test {
  CommandTest() {
    limits.velocity.fill(2.0);
    limits.acceleration.fill(10.0);
    limits.joints.urdf_lower.fill(-1.0);
    limits.joints.urdf_upper.fill(1.0);
    limits.joints.urdf_has_limit.set();
    limits.joints.urdf_has_limit.reset(5);
    measured = {0.1, 0.2, 0.3, -0.1, -0.2, -0.3};
  }

  /// Evaluates the command so many seconds after the clock's zero, as the cycle does.
  SetPoint at(double seconds, Approach approach = Approach::kReference) {
    const auto elapsed =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    const TimePoint now = TimePoint{} + elapsed;
    begin(command, {now, measured});
    const SetPoint point = evaluate(command, {now, measured, reference}, limits, approach);
    reference = point.reference;
    return point;
  }

  void begin_move(const JointArray& start, const JointArray& target, double duration) {
    command = TimedMove{target, duration};
    begin(command, {TimePoint{}, start});
  }

  Command command;
  JointArray measured{};
  SetPointLimits limits;
  MitReference reference;
};

TEST_F(CommandTest, TimedMoveFollowsTheSepticBlend) {
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
    EXPECT_EQ(point.end.has_value(), t >= 2.0) << t;
    // The feed-forward is gravity where the arm is, not where it is sent.
    EXPECT_EQ(point.model_q, measured);
    EXPECT_EQ(point.model_dq, JointArray{});
    EXPECT_EQ(point.model_ddq, JointArray{});
  }
  EXPECT_EQ(at(9.0).q, target);
  EXPECT_EQ(at(9.0).end, target);
}

TEST_F(CommandTest, CommandsWithoutMotionHoldTheMeasuredPositions) {
  const auto expect_hold = [&](const SetPoint& point) {
    EXPECT_EQ(point.q, measured);
    EXPECT_EQ(point.dq, JointArray{});
    EXPECT_EQ(point.velocity_limit, JointArray{});
    EXPECT_EQ(point.model_q, measured);
    EXPECT_FALSE(point.end);
    EXPECT_FALSE(point.torque_only);
  };
  expect_hold(at(1.0));
  for (const double duration : {0.0, 1e-6, -1.0, kNaN}) {
    begin_move({}, {0.5, 0.5, 0.5, 0.5, 0.5, 0.5}, duration);
    expect_hold(at(1.0));
  }
  command = WaypointMove{};
  expect_hold(at(1.0));
  command = WaypointMove{{}, std::make_shared<std::vector<WaypointTrajectorySample>>()};
  expect_hold(at(1.0));
}

TEST_F(CommandTest, PlaysOneWaypointSamplePerPeriodAndEndsAtTheLast) {
  auto samples = std::make_shared<std::vector<WaypointTrajectorySample>>(3);
  for (std::size_t k = 0; k < samples->size(); ++k) {
    (*samples)[k].q.fill(0.6 * static_cast<double>(k));
    (*samples)[k].dq.fill(-3.0);
    (*samples)[k].ddq.fill(7.0);
  }
  const JointArray target{0.9, 0.9, 0.9, 0.9, 0.9, 1.2};
  command = WaypointMove{target, samples, 0.01};
  at(0.0);
  const SetPoint middle = at(0.0199);
  EXPECT_EQ(middle.q[0], 0.6);
  EXPECT_EQ(middle.dq[0], -3.0);
  EXPECT_EQ(middle.velocity_limit[0], 2.0);
  EXPECT_EQ(middle.model_ddq[0], 7.0);
  EXPECT_EQ(middle.model_q, middle.q);
  EXPECT_FALSE(middle.end);
  const SetPoint last = at(1e6);
  EXPECT_EQ(last.end, target);
  EXPECT_EQ(last.q[0], 1.0) << "clamped to the joint limit";
  EXPECT_EQ(last.q[5], 1.2) << "a joint without limits";
}

TEST_F(CommandTest, MitReferenceApproachesATargetWithinItsLimitsAndStopsThere) {
  command = JointTarget{{5.0, 0.2, -0.3, 0.4, -5.0, 3.0}, {}};
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

TEST_F(CommandTest, EveryOtherCommandDropsTheReferenceSoThatTheNextTargetStartsWhereTheArmIs) {
  const JointTarget target{measured, {}};
  command = target;
  at(0.0);
  EXPECT_TRUE(reference.mit_ref_initialised);
  for (const Command& other : {Command(TimedMove{}), Command(WaypointMove{}), Command(Float{}),
                               Command(FloatKdl{}), Command(NoCommand{})}) {
    reference = {true, {9, 9, 9, 9, 9, 9}, {1, 1, 1, 1, 1, 1}};
    command = other;
    at(0.0);
    EXPECT_FALSE(reference.mit_ref_initialised) << command_type(other);
  }
  reference = {true, {9, 9, 9, 9, 9, 9}, {1, 1, 1, 1, 1, 1}};
  command = target;
  EXPECT_EQ(at(0.0, Approach::kMotor).velocity_limit, limits.velocity);
  EXPECT_FALSE(reference.mit_ref_initialised) << "the motors limit their own rates";
  measured.fill(0.7);
  JointArray same;
  same.fill(0.7);
  command = JointTarget{same, {}};
  EXPECT_EQ(at(0.0).q, measured);
}

TEST(Command, HasTheNumberOfItsKind) {
  int number = 0;
  for (const Command& command : {Command(NoCommand{}), Command(JointTarget{}), Command(TimedMove{}),
                                 Command(WaypointMove{}), Command(Float{}), Command(FloatKdl{})}) {
    EXPECT_EQ(command_type(command), number++);
  }
}

TEST(Clamp, LetsTheLowerBoundWinAndTurnsNanIntoIt) {
  EXPECT_EQ(clamp(5, 10, 0), 10);
  EXPECT_EQ(clamp(kNaN, -1, 1), -1);
  JointLimits limits;
  limits.urdf_has_limit.set(0);
  limits.urdf_upper[0] = 1.0;
  EXPECT_EQ(limits.clamp_to_urdf_joint_limit(0, 7.0), 1.0);
  EXPECT_EQ(limits.clamp_to_urdf_joint_limit(1, 7.0), 7.0);
  EXPECT_TRUE(std::isnan(limits.clamp_to_urdf_joint_limit(0, kNaN)));
}

}  // namespace
}  // namespace kelvara::motion
