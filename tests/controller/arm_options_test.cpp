// A controller that is started with options: what it does at the start, after a fault, and to
// recover.

#include "kelvara/arm_options.hpp"

#include <cmath>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/arm_controller_impl.hpp"
#include "support/closed_loop.hpp"
#include "support/outcomes.hpp"
#include "support/planned_motion.hpp"

namespace {

using kelvara::ArmCondition;
using kelvara::FaultReaction;
using kelvara::JointArray;
using kelvara::StopReason;
using ::testing::HasSubstr;
using Recovery = kelvara::controller::StopFlags::Recovery;

const JointArray kTarget{0.6, 0.5, -0.4, 0.5, -0.6, 0.8};

struct FaultReactions : ::testing::TestWithParam<FaultReaction> {};

TEST_P(FaultReactions, StopTheArmAsAskedAndRecoverWhereItIs) {
  kelvara::ArmOptions options;
  options.on_fault = GetParam();
  ClosedLoop loop(options);
  loop.run(4);
  CommandWatch watch(JointArray{});
  loop.move(kTarget, 2.0);
  loop.run(400, watch);
  loop.hardware.arm().motor(2).raise_error(0xB);
  for (int k = 0; k < 12 && !loop.impl->flags.exit_flag; ++k) {  // a slow bus answers a round later
    loop.cycle();
  }
  const kelvara::ArmState state = loop.impl->arm_state();
  EXPECT_EQ(state.condition, ArmCondition::kMotorFault);
  EXPECT_EQ(state.reason, StopReason::kMotorError);
  EXPECT_EQ(state.reason_motor, 3);
  EXPECT_STREQ(state.motors[2].error_name, "MOS over-temperature");
  if (GetParam() == FaultReaction::kReport) {
    loop.run(600);
    EXPECT_NEAR(loop.true_positions()[0], kTarget[0], 0.02) << "the others continue";
    return;
  }
  EXPECT_EQ(error_of([&] { loop.move(kTarget, 1.0); }),
            "ArmController: motor 3 reports an error; call recover() before the next command");
  if (GetParam() == FaultReaction::kDisable) {
    EXPECT_TRUE(loop.impl->flags.exit_flag);
    EXPECT_FALSE(loop.hardware.arm().motor(0).is_enabled());
    return;
  }
  loop.run(400, watch);
  const JointArray held = loop.true_positions();
  EXPECT_LT(held[0], 0.9 * kTarget[0]) << "braked on the way";
  EXPECT_TRUE(loop.hardware.arm().motor(0).is_enabled());
  loop.impl->flags.recovery = Recovery::kRequested;
  loop.run(60);
  EXPECT_EQ(loop.impl->flags.recovery, Recovery::kDone);
  EXPECT_TRUE(loop.hardware.arm().motor(2).is_enabled());
  EXPECT_EQ(loop.impl->arm_state().condition, ArmCondition::kHolding);
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_NEAR(loop.true_positions()[i], held[i], i == 2 ? 0.3 : 0.1) << "joint " << i + 1;
  }
}

TEST(Fault, AtHighSpeedBrakesEveryJointWithoutAStepAndRecoversOnTheWay) {
  const JointArray start{-1.2, 0, 0, 0, 0, 0};
  ClosedLoop loop(kelvara::ArmOptions{}, start);
  loop.run(4);
  loop.move({1.2, 0, 0, 0, 0, 0}, 0.8);  // 6.6 rad/s at its peak
  loop.run(160);
  loop.hardware.arm().motor(2).raise_error(0xB);
  loop.run(6);
  double last_q = loop.impl->arm_state().q_command[0];
  double last_dq = loop.impl->arm_state().dq_command[0];
  EXPECT_GT(last_dq, 5.0);
  for (int k = 0; k < 300; ++k) {
    if (k == 20) {
      loop.impl->flags.recovery = Recovery::kRequested;
    }
    loop.cycle();
    const kelvara::ArmState state = loop.impl->arm_state();
    EXPECT_LE(state.dq_command[0], last_dq + 1e-9) << k;
    EXPECT_LE(last_dq - state.dq_command[0], 0.1) << k;
    EXPECT_LE(std::abs(state.q_command[0] - last_q), last_dq * 0.0026 + 1e-6) << k;
    last_q = state.q_command[0];
    last_dq = state.dq_command[0];
  }
  EXPECT_EQ(last_dq, 0.0);
  EXPECT_EQ(loop.impl->arm_state().condition, ArmCondition::kHolding);
  EXPECT_NEAR(loop.true_positions()[0], last_q, 0.02);
}

TEST(FloatingArm, ThatNoLongerReportsWhereItIsKeepsFloatingAndIsNotPulledBack) {
  ClosedLoop loop(kelvara::ArmOptions{}, kTarget);
  loop.run(10);
  loop.impl->publish_kdl_gravity_comp_command();
  loop.run(10);
  loop.hardware.change_replies([](std::vector<canfd_frame>& replies) { replies.clear(); });
  loop.run(100);
  EXPECT_EQ(loop.impl->arm_state().condition, ArmCondition::kBusSilent);
  EXPECT_TRUE(loop.hardware.arm().floats());
  JointArray moved = kTarget;
  moved[0] -= 0.4;
  loop.hardware.arm().set_joint_positions(moved);
  loop.impl->flags.recovery = Recovery::kRequested;
  loop.run(20);
  EXPECT_TRUE(loop.hardware.arm().floats()) << "nobody knows where it is";
  loop.hardware.change_replies({});
  loop.run(60);
  EXPECT_EQ(loop.impl->flags.recovery, Recovery::kDone);
  EXPECT_NEAR(loop.impl->arm_state().q_command[0], moved[0], 0.02);
  EXPECT_NEAR(loop.true_positions()[0], moved[0], 0.02);
}

/// The arm falls while it is off. Each reply comes a cycle after its request.
TEST(Recovery, EnablesMotorsWhereTheyAreWithTheTorqueThatTheyNeedThere) {
  ClosedLoop loop(kelvara::ArmOptions{}, kReady);
  const auto run = [&](int cycles, auto control) {
    for (int k = 0; k < cycles; ++k) {
      control();
      while (loop.hardware.arm_bus().handle_frames(std::chrono::milliseconds(0)) > 0) {
      }
      loop.hardware.arm().advance(ClosedLoop::kPeriod);
      loop.now += ClosedLoop::kPeriod;
    }
  };
  const auto cycle = [&] { loop.impl->cycle->run_cycle(loop.now); };
  run(40, cycle);
  move_joint(loop, {1.5, 0.2, -0.2, 0.0, 0.0, 0.0});
  run(70, cycle);
  loop.impl->flags.emergency_stop_flag = true;
  run(1, cycle);
  run(40, [] {});
  const kelvara::JointArray fallen{1.0, 1.6, -0.3, 0.3, 0.0, 0.2};
  loop.hardware.arm().set_joint_positions(fallen);
  loop.impl->flags.emergency_stop_flag = false;
  loop.impl->cycle->begin(loop.now);
  loop.impl->flags.recovery = Recovery::kRequested;
  double largest_torque = 0.0;
  run(60, [&] {
    cycle();
    largest_torque = std::max(largest_torque, std::abs(loop.hardware.arm().joint_torques()[0]));
  });
  EXPECT_EQ(loop.impl->flags.recovery, Recovery::kDone);
  EXPECT_NEAR(loop.true_positions()[0], fallen[0], 2e-3);
  EXPECT_LE(largest_torque, 1.0) << "gravity does not turn joint 1";
}

INSTANTIATE_TEST_SUITE_P(Each, FaultReactions,
                         ::testing::Values(FaultReaction::kReport, FaultReaction::kHold,
                                           FaultReaction::kDisable));

TEST(Options, HoldAtTheStartAndKeepTheCeilingOfTheSpeed) {
  kelvara::ArmOptions options;
  options.velocity_scale = 0.05;  // 0.525 rad/s for joint 1
  ClosedLoop loop(options, kTarget);
  CommandWatch watch;
  loop.run(200, watch);
  EXPECT_LT(watch.largest_step(), 0.002) << "holds where it is";
  EXPECT_EQ(loop.impl->arm_state().condition, ArmCondition::kHolding);
  loop.move(JointArray{}, 0.1);
  loop.run(400, watch);
  EXPECT_EQ(loop.impl->arm_state().condition, ArmCondition::kMoving);
  EXPECT_LT(watch.largest_step(), 1.1 * 15.5 * 0.05 * 0.0025 + 0.002);
  loop.run(1200, watch);
  EXPECT_NEAR(loop.true_positions()[0], 0.0, 0.02);
  const std::vector<double> away(kTarget.begin(), kTarget.end());
  loop.impl->publish_joint_waypoint_trajectory_command({away}, 0.02, 0.0, 400.0);
  loop.run(2000, watch);
  EXPECT_NEAR(loop.true_positions()[0], kTarget[0], 0.02);
  EXPECT_LT(watch.largest_step(), 1.1 * 15.5 * 0.05 * 0.0025 + 0.002);
}

TEST(Options, RefuseAMotorThatDoesNotAnswer) {
  SimulatedHardware hardware(false);
  hardware.arm().motor(3).set_silent(true);
  hardware.answer();
  CapturedOutput output;
  kelvara::ArmOptions options;
  options.interface = TestBus::kInterface;
  EXPECT_EQ(error_of([&] { const ArmController::Impl impl(options); }),
            "ArmController: motor 4 does not answer");
  hardware.halt();
  EXPECT_FALSE(hardware.arm().motor(0).is_enabled());
  options.velocity_scale = 1.5;
  EXPECT_EQ(error_of([&] { const ArmController::Impl impl(options); }),
            "invalid argument: ArmOptions: velocity_scale must be in (0, 1]");
}

}  // namespace
