// Planned motion in closed loop: no step, whatever follows what, and how it ends.

#include "controller/motion_starter.hpp"

#include <future>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "support/planned_motion.hpp"

namespace {

using kelvara::ArmState;
using kelvara::JointArray;
using kelvara::kJointCount;
using kelvara::MotionHandle;
using kelvara::MotionLimits;
using kelvara::MotionOutcome;
using kelvara::MotionPlanner;
using kelvara::Plan;
using kelvara::damiao_motor::MIT_MODE;

constexpr double kUnknownLoadKg = 1.5;
constexpr double kPeriodS = 0.0025;

JointArray near(std::mt19937& random, const JointArray& q, double reach) {
  std::uniform_real_distribution<double> share(-reach, reach);
  JointArray target = q;
  for (double& angle : target) {
    angle += share(random);
  }
  return target;
}

/// As a line does: brakes an arm that moves, and blocks meanwhile.
MotionHandle move_from_rest(ClosedLoop& loop, const JointArray& target) {
  const MotionPlanner planner = loop.impl->motions->planner({0.5, 0.0});
  return loop.impl->motions->move(
      kelvara::controller::MotionStarter::From::kRest,
      [&](const kelvara::PlanSample& start) { return planner.plan_joint(start, target); },
      [](const Plan&) {});
}

// ---- Smoothness -----------------------------------------------------------

class EachMode : public testing::TestWithParam<kelvara::damiao_motor::ControlMode> {};

/// With 1.5 kg that the model does not know, so that the arm hangs far from its command.
TEST_P(EachMode, NeverStepsInAnySequenceOfMovesStopsAndSpeeds) {
  std::mt19937 random(11);
  ClosedLoop loop(GetParam(), {}, false, kUnknownLoadKg);
  go(loop, kReady);
  const MotionLimits limits = loop.impl->motions->limits(1.0);
  SmoothnessWatch watch(loop);
  MotionHandle motion, stop;
  for (int k = 0; k < 60; ++k) {
    const int choice = std::uniform_int_distribution<int>(0, 5)(random);
    if (choice <= 2) {
      finish(loop, stop, watch);  // a move waits for it
      motion = move_joint(loop, near(random, kReady, 0.4), choice == 0 ? 0.5 : 1.0);
    } else if (choice == 3) {
      stop = loop.impl->motions->stop();
    } else {
      loop.impl->flags.speed_override = std::uniform_int_distribution<int>(0, 4)(random) / 4.0;
    }
    loop.run(std::uniform_int_distribution<int>(1, 120)(random), watch);
  }
  loop.impl->flags.speed_override = 1.0;
  finish(loop, motion, watch);
  EXPECT_LE(watch.farthest_step(), limits.velocity[5] * kPeriodS * 1.001);
  EXPECT_LE(watch.sharpest_turn(), limits.acceleration[5] * kPeriodS * kPeriodS * 1.01);
  EXPECT_LE(watch.largest_torque_step(), 2.0);
  EXPECT_GT(watch.farthest_step(), 0.001) << "something moved";
}

INSTANTIATE_TEST_SUITE_P(MotionStarter, EachMode,
                         testing::Values(MIT_MODE, kelvara::damiao_motor::POS_VEL_MODE));

TEST(MotionStarter, CommandsThePlanItselfAndHoldsItsEnd) {
  ClosedLoop loop(MIT_MODE, {}, false, kUnknownLoadKg);
  go(loop, kReady);
  const JointArray target{0.5, 0.6, -0.6, 0.1, 0.2, -0.3};
  const MotionPlanner planner = loop.impl->motions->planner({1.0, 0.0});
  const Plan plan = planner.plan_joint(loop.impl->arm_state().q_command, target);
  const MotionHandle motion = loop.impl->motions->execute(plan);
  for (std::size_t k = 1; k < plan.samples().size(); ++k) {
    loop.cycle();
    const ArmState state = loop.impl->arm_state();
    for (std::size_t i = 0; i < kJointCount; ++i) {
      ASSERT_NEAR(state.q_command[i], plan.samples()[k].q[i], 1e-12) << k;
    }
  }
  EXPECT_EQ(motion.wait_for(0.0), MotionOutcome::kDone);
  EXPECT_EQ(motion.progress(), 1.0);
  loop.run(100);
  EXPECT_EQ(loop.impl->arm_state().q_command, target);
  EXPECT_EQ(motion.wait_settled(1e-6, 0.0), MotionOutcome::kTimeout) << "the load lets the arm sag";
  EXPECT_EQ(motion.wait_settled(0.2, 0.0), MotionOutcome::kDone);
}

TEST(MotionStarter, BrakesAnyOtherCommandWithoutAStep) {
  for (const bool floats : {false, true}) {
    ClosedLoop loop(MIT_MODE, {}, false, kUnknownLoadKg);
    go(loop, kReady);
    const ArmState before = loop.impl->arm_state();
    if (floats) {
      loop.impl->publish_gravity_comp_command();
    } else {
      loop.move({0.4, 0.4, -0.5, 0.0, 0.0, 0.0}, 0.8);
    }
    for (int k = 0; k < 100; ++k) {
      loop.cycle(floats ? 1 : 0);
    }
    ASSERT_NE(loop.impl->arm_state().q_command, before.q_command);
    const double speed = std::abs(loop.impl->arm_state().dq_command[0]);
    SmoothnessWatch watch(loop);
    const MotionHandle stop = loop.impl->motions->stop();
    finish(loop, stop, watch);
    EXPECT_EQ(stop.wait_for(0.0), MotionOutcome::kDone);
    EXPECT_LE(watch.largest_torque_step(), 2.0);
    EXPECT_LE(watch.farthest_step(), (floats ? 3.0 : 1.2 * std::max(speed, 1.0)) * kPeriodS);
    loop.run(100);
    EXPECT_EQ(loop.impl->arm_state().dq_command, JointArray{});
  }
}

TEST(MotionStarter, KeepsTheTorqueSmoothWhereAFaultBrakesAPlan) {
  ClosedLoop loop(kelvara::ArmOptions{}, kReady);
  loop.run(4);
  const MotionHandle motion = move_joint(loop, JointArray{});
  loop.run(120);
  loop.hardware.arm().motor(5).raise_error(0xD);
  SmoothnessWatch watch(loop);
  loop.run(200, watch);
  EXPECT_EQ(motion.wait_for(0.0), MotionOutcome::kFault);
  EXPECT_LE(watch.largest_torque_step(), 2.0);
}

// ---- Stops ----------------------------------------------------------------

TEST(MotionStarter, LetsNoMoveThatIsBeingPlannedOutliveAStop) {
  ClosedLoop loop(MIT_MODE);
  go(loop, kReady);
  const MotionPlanner planner = loop.impl->motions->planner({1.0, 0.0});
  const MotionHandle motion = loop.impl->motions->move(
      kelvara::controller::MotionStarter::From::kMotion,
      [&](const kelvara::PlanSample& start) {
        loop.impl->motions->stop();  // as another thread may
        return planner.plan_joint(start, JointArray{});
      },
      [](const Plan&) {});
  EXPECT_EQ(motion.wait_for(0.0), MotionOutcome::kStopped);
  loop.run(100);
  EXPECT_EQ(loop.impl->arm_state().q_command, kReady);
}

TEST(MotionStarter, StopsATimedMoveShortOfItsTarget) {
  ClosedLoop loop(MIT_MODE);
  go(loop, kReady);
  loop.move({0.5, 0.8, -0.9, 0.3, 0.4, 0.2}, 0.4);
  loop.run(80);
  ASSERT_GT(loop.impl->arm_state().dq_command[0], 2.0);
  finish(loop, loop.impl->motions->stop());
  EXPECT_GT(loop.impl->arm_state().q_command[0], 0.25);
  EXPECT_LE(loop.impl->arm_state().q_command[0], 0.5);
}

TEST(MotionStarter, LeavesAMotionAloneForAMoveThatCannotBeDone) {
  ClosedLoop loop(MIT_MODE);
  go(loop, kReady);
  const MotionHandle motion = move_joint(loop, JointArray{});
  loop.run(60);
  JointArray outside = kReady;
  outside[0] = 9.0;
  EXPECT_THROW(move_from_rest(loop, outside), kelvara::MotionError);
  finish(loop, motion);
  EXPECT_EQ(motion.wait_for(0.0), MotionOutcome::kDone);
}

TEST(MotionStarter, EndsWhatNobodyWouldExecute) {
  ClosedLoop loop(MIT_MODE);
  go(loop, kReady);
  const MotionPlanner planner = loop.impl->motions->planner({1.0, 0.0});
  const Plan plan = planner.plan_joint(loop.impl->arm_state().q_command, JointArray{});
  for (const bool moves : {false, true}) {
    loop.impl->flags.emergency_stop_flag = false;
    if (moves) {
      loop.impl->slot.override_command(kelvara::motion::NoCommand{});  // as a recovery does
      loop.run(4);
      move_joint(loop, JointArray{});
      loop.run(40);
    }
    loop.impl->flags.emergency_stop_flag = true;
    loop.impl->cycle->run_cycle(loop.now);
    const MotionHandle motion =
        moves ? move_joint(loop, kReady) : loop.impl->motions->execute(plan);
    EXPECT_EQ(motion.wait_for(0.0), MotionOutcome::kFault) << moves;
    EXPECT_EQ(loop.impl->motions->stop().wait_for(0.0), MotionOutcome::kFault) << moves;
  }
}

TEST(MotionStarter, RepeatsTheCommandOfAPlanWhileCyclesCatchUp) {
  ClosedLoop loop(MIT_MODE);
  go(loop, kReady);
  move_joint(loop, JointArray{});
  loop.run(60);
  const JointArray before = loop.impl->arm_state().q_command;
  for (int k = 1; k <= 5; ++k) {
    loop.impl->cycle->run_cycle(loop.now - ClosedLoop::kPeriod +
                                std::chrono::microseconds(100 * k));
  }
  EXPECT_EQ(loop.impl->arm_state().q_command, before);
  loop.run(1);
  EXPECT_NE(loop.impl->arm_state().q_command, before);
}

// ---- Outcomes and refusals ------------------------------------------------

TEST(MotionStarter, TellsHowAMotionHasEnded) {
  ClosedLoop loop(MIT_MODE);
  go(loop, kReady);
  const JointArray away{0.8, 0.8, -0.9, 0.3, 0.4, 0.2};
  const MotionHandle replaced = move_joint(loop, away);
  loop.run(40);
  const MotionHandle stopped = move_joint(loop, kReady);
  EXPECT_FALSE(replaced.is_done()) << "it goes on until the next plan takes over";
  loop.run(40);
  EXPECT_EQ(replaced.wait_for(0.0), MotionOutcome::kReplaced);
  EXPECT_EQ(stopped.wait_for(0.0), MotionOutcome::kTimeout);
  const MotionHandle stop = loop.impl->motions->stop();
  finish(loop, stop);
  EXPECT_EQ(stopped.wait_for(0.0), MotionOutcome::kStopped);
  EXPECT_LT(stopped.progress(), 1.0);
  const MotionHandle braked = move_joint(loop, away);
  loop.run(40);
  auto line = std::async(std::launch::async, [&] { return move_from_rest(loop, away); });
  while (line.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
    loop.run(1);
  }
  const MotionHandle faulty = line.get();
  EXPECT_EQ(braked.wait_for(0.0), MotionOutcome::kReplaced);
  loop.run(10);
  loop.impl->flags.emergency_stop_flag = true;
  loop.impl->cycle->run_cycle(loop.now);
  EXPECT_EQ(faulty.wait_for(0.0), MotionOutcome::kFault);
}

template <typename Action>
int refused_joint(kelvara::MotionErrorCode code, Action action) {
  try {
    action();
  } catch (const kelvara::MotionError& error) {
    EXPECT_EQ(error.code(), code) << error.what();
    return error.joint();
  }
  ADD_FAILURE() << "not refused";
  return -1;
}

TEST(MotionStarter, RefusesPlansThatDoNotStartWhereTheCommandStands) {
  using Code = kelvara::MotionErrorCode;
  ClosedLoop loop(MIT_MODE);
  go(loop, kReady);
  const MotionPlanner planner = loop.impl->motions->planner({1.0, 0.0});
  JointArray off = kReady;
  off[2] += 0.002;
  const Plan elsewhere = planner.plan_joint(off, kReady);
  EXPECT_EQ(refused_joint(Code::kStartMismatch, [&] { loop.impl->motions->execute(elsewhere); }),
            3);
  off[2] = kReady[2] + 0.0005;
  const MotionHandle close_by = loop.impl->motions->execute(planner.plan_joint(off, {}));
  SmoothnessWatch watch(loop);
  loop.run(20, watch);
  EXPECT_LT(watch.sharpest_turn(), 2e-4) << "the offset fades out";
  const Plan plan = planner.plan_joint(kReady, off);
  EXPECT_EQ(refused_joint(Code::kStartMismatch, [&] { loop.impl->motions->execute(plan); }), 0);
  finish(loop, close_by);
  std::vector<kelvara::PlanSample> jump(2);
  jump[0].q = jump[1].q = loop.impl->arm_state().q_command;
  jump[1].q[4] += 0.01;
  const Plan by_hand(jump, Plan::kSamplePeriodS, {});
  std::vector<kelvara::PlanSample> half = planner.plan_joint(jump[0].q, kReady).samples();
  half.resize(half.size() / 2);
  const Plan truncated(half, Plan::kSamplePeriodS * static_cast<double>(half.size() - 1), {});
  EXPECT_GT(refused_joint(Code::kLimitExceeded, [&] { loop.impl->motions->execute(truncated); }),
            0);
  EXPECT_EQ(refused_joint(Code::kLimitExceeded, [&] { loop.impl->motions->execute(by_hand); }), 5);
  std::vector<kelvara::PlanSample> shaking(5, {jump[0].q, {}, {}});
  shaking[1].ddq[0] = 800.0;
  shaking[2].ddq[0] = -800.0;
  const Plan shock(shaking, 4 * Plan::kSamplePeriodS, {});
  EXPECT_EQ(refused_joint(Code::kLimitExceeded, [&] { loop.impl->motions->execute(shock); }), 1);
  loop.impl->publish_gravity_comp_command();
  loop.cycle(1);
  EXPECT_EQ(refused_joint(Code::kStartMismatch, [&] { loop.impl->motions->execute(plan); }), 0);
}

}  // namespace
