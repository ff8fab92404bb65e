// What made the arm jump, drop or run on without a word: each hazard, and what happens now.

#include <atomic>
#include <cmath>
#include <random>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/arm_controller_impl.hpp"
#include "support/closed_loop.hpp"
#include "support/edited_description.hpp"
#include "support/outcomes.hpp"

namespace {

using kelvara::ArmCondition;
using kelvara::FaultReaction;
using kelvara::JointArray;
using kelvara::StopReason;
using kelvara::damiao_motor::MIT_MODE;
using ::testing::HasSubstr;
using Recovery = kelvara::controller::StopFlags::Recovery;
using Replies = std::vector<canfd_frame>;

const JointArray kTarget{0.6, 0.5, -0.4, 0.5, -0.6, 0.8};
constexpr double kUnknownLoadKg = 1.5;
constexpr double kCycleS = 0.0025;
// The largest step of a move of 0.8 rad in 1 s, with a tenth for its rounding to the frame.
constexpr double kFastestStep = 1.1 * 2.1875 * 0.8 * kCycleS;

void run(ClosedLoop& loop, int cycles) {
  for (int k = 0; k < cycles; ++k) {
    loop.cycle();
  }
}

void run(ClosedLoop& loop, int cycles, CommandWatch& watch) {
  for (int k = 0; k < cycles; ++k) {
    loop.cycle();
    watch.look();
  }
}

void move(ClosedLoop& loop, const JointArray& target, double duration_s) {
  loop.impl->publish_joint_trajectory_command({target.begin(), target.end()}, duration_s);
}

TEST(Reference, ContinuesFromTheEndOfAMoveWithAnUnknownLoad) {
  ClosedLoop loop(MIT_MODE, {}, false, kUnknownLoadKg);
  run(loop, 10);
  CommandWatch watch;
  move(loop, kTarget, 1.0);
  run(loop, 800, watch);
  EXPECT_LT(watch.largest_step(), kFastestStep);
}

TEST(LostAnswers, UntilAMoveEndsAndANewOneBeginsDoNotMoveTheReferenceBack) {
  ClosedLoop loop(MIT_MODE);
  CommandWatch watch(JointArray{});
  move(loop, kTarget, 1.0);
  run(loop, 100, watch);
  loop.hardware.change_replies([](Replies& replies) { replies.clear(); });
  run(loop, 400, watch);
  move(loop, JointArray{}, 1.0);
  run(loop, 1, watch);
  EXPECT_THAT(loop.output.err(), HasSubstr("[control_loop] joint 1 has not answered for"));
  const std::vector<double> half(6, 0.3);
  loop.impl->publish_joint_waypoint_trajectory_command({half}, 2.0, 0.0, 400.0);
  EXPECT_THAT(loop.output.err(), HasSubstr("[move_joint_waypoints] joint 6 does not answer"));
  loop.hardware.change_replies({});
  run(loop, 900, watch);
  EXPECT_LT(watch.largest_step(), kFastestStep);
  EXPECT_NEAR(loop.true_positions()[5], 0.3, 0.02);
}

TEST(RegisterReplies, OfAnotherProgramsQueriesAreNoAngles) {
  ClosedLoop loop(MIT_MODE, kTarget);
  BusPeer other;
  CommandWatch watch;
  for (int k = 0; k < 300; ++k) {
    if (k % 10 == 5) {
      move(loop, kTarget, 1.0);  // starts where the arm is measured
    }
    other.send(
        parse_frame("7FF#030033090000"
                    "0000"));
    loop.cycle(1);
    watch.look();
  }
  EXPECT_LT(watch.largest_step(), 0.02);
  EXPECT_EQ(loop.impl->arm_state().counters.foreign_commands, 0U) << "a query commands nothing";
}

TEST(ImplausibleSamples, CountOnceTheNextAnswersConfirmThem) {
  ClosedLoop loop(MIT_MODE);
  run(loop, 10);
  const auto shift = [](Replies& replies) {
    for (canfd_frame& reply : replies) {
      reply.data[1] = static_cast<std::uint8_t>(reply.data[1] + 20);  // 2 rad
    }
  };
  JointArray q{};
  loop.hardware.change_replies(shift);
  run(loop, 2);  // one round of feedback
  loop.impl->state.try_get_latest_joint_state(q);
  EXPECT_NEAR(q[2], 0.0, 0.1);
  run(loop, 8);
  loop.impl->state.try_get_latest_joint_state(q);
  EXPECT_NEAR(std::abs(q[2]), 2.0, 0.1);
  EXPECT_GT(loop.impl->arm_state().counters.implausible_samples, 0U);
}

TEST(LossyStart, KnowsWhereTheArmIsAndEnablesEveryMotor) {
  std::mt19937 random(7);
  for (int start = 0; start < 12; ++start) {
    SimulatedHardware hardware(false, {.with_gripper = true, .load_kg = 0.0, .start = kTarget});
    std::bernoulli_distribution lost(0.2);
    hardware.change_replies([&](Replies& replies) {
      replies.erase(std::remove_if(replies.begin(), replies.end(),
                                   [&](const canfd_frame&) { return lost(random); }),
                    replies.end());
    });
    CapturedOutput output;
    const auto impl = hardware.start([] {
      return std::make_unique<ArmController::Impl>(TestBus::kInterface, false, nullptr, true,
                                                   MIT_MODE);
    });
    for (std::size_t i = 0; i < 6; ++i) {
      EXPECT_NEAR(impl->setup.motor_signs.to_joint(i, impl->feedback.motor(i).state.position),
                  kTarget[i], 0.01)
          << "start " << start << ", joint " << i + 1 << output.err();
      EXPECT_TRUE(hardware.arm().motor(i).is_enabled());
    }
  }
}

TEST(StartOutsideTheLimits, ComesBackWithoutAJump) {
  ClosedLoop loop(MIT_MODE, kTarget);
  const EditedDescription description;
  description.edit_urdf(R"(upper="2.9")", R"(upper="0.5")");  // joint 6 stands at 0.8 rad
  loop.make_controller(MIT_MODE);
  CommandWatch watch;
  move(loop, JointArray{}, 2.0);
  run(loop, 200, watch);
  EXPECT_LT(watch.largest_step(), 0.5 * kFastestStep);
  loop.hardware.arm().set_joint_positions(kTarget);
  loop.make_controller(MIT_MODE);
  loop.impl->publish_joint_raw_command({kTarget.begin(), kTarget.end()},
                                       std::vector<double>(6, 0.0));
  CommandWatch target_watch;
  run(loop, 200, target_watch);
  EXPECT_LT(target_watch.largest_step(), 0.02);
  EXPECT_NEAR(loop.true_positions()[5], 0.5, 0.02);
}

TEST(PoseStream, ThatStopsHoldsItsLastPose) {
  ClosedLoop loop(MIT_MODE);
  run(loop, 4);
  std::vector<double> q(6, 0.0);
  for (int k = 0; k < 40; ++k) {
    q[0] += 0.01;
    loop.impl->publish_streamed_command(q, {4.0, 0, 0, 0, 0, 0});
    loop.cycle();
  }
  run(loop, 20);
  EXPECT_GT(loop.impl->arm_state().dq_command[0], 0.5) << "until 100 ms have passed";
  run(loop, 400);
  EXPECT_NEAR(loop.impl->arm_state().q_command[0], q[0], 1e-3);
  EXPECT_NEAR(loop.impl->arm_state().dq_command[0], 0.0, 1e-2);
}

TEST(LateLoop, ContinuesTheMoveWhereItWas) {
  ClosedLoop loop(MIT_MODE);
  CommandWatch watch(JointArray{});
  move(loop, kTarget, 1.0);
  run(loop, 100, watch);
  loop.now += std::chrono::seconds(10);
  loop.impl->cycle->skip(std::chrono::seconds(10), loop.now);
  run(loop, 100, watch);
  EXPECT_NEAR(loop.impl->arm_state().progress, 0.5, 0.01);
  run(loop, 300, watch);
  EXPECT_LT(watch.largest_step(), kFastestStep);
}

TEST(RefusedFrames, AtBringUpAreAnError) {
  SimulatedHardware hardware(false);
  hardware.bus().interface().set_queue_full(true);
  CapturedOutput output;
  EXPECT_THAT(
      error_of([] { const ArmController arm(false, TestBus::kInterface, false, MIT_MODE); }),
      HasSubstr("txqueuelen"));
}

TEST(AnotherMaster, IsCountedAndNamedAndRefusedWithOptions) {
  ClosedLoop loop(MIT_MODE);
  BusPeer other;
  for (int k = 0; k < 20; ++k) {
    other.send(parse_frame("003#7FFF7FF0000007FF"));
    loop.cycle(1);
  }
  EXPECT_GE(loop.impl->arm_state().counters.foreign_commands, 19U);
  EXPECT_THAT(loop.output.err(), HasSubstr("another program commands motor 3"));
  kelvara::ArmOptions options;
  options.interface = TestBus::kInterface;
  std::atomic<bool> refused{false};
  std::thread master([&] {
    while (!refused) {
      other.send(parse_frame("003#7FFF7FF0000007FF"));
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  });
  EXPECT_EQ(error_of([&] { const ArmController::Impl second(options); }),
            "ArmController: another program commands motor 3 on can0; end it first");
  refused = true;
  master.join();
}

struct FaultReactions : ::testing::TestWithParam<FaultReaction> {};

TEST_P(FaultReactions, StopTheArmAsAskedAndRecoverWhereItIs) {
  kelvara::ArmOptions options;
  options.on_fault = GetParam();
  ClosedLoop loop(options);
  run(loop, 4);
  CommandWatch watch(JointArray{});
  move(loop, kTarget, 2.0);
  run(loop, 400, watch);
  loop.hardware.arm().motor(2).raise_error(0xB);
  for (int k = 0; k < 6 && !loop.impl->flags.exit_flag; ++k) {
    loop.impl->cycle->run_cycle(loop.now);
    loop.hardware.step(6, ClosedLoop::kPeriod);
    loop.now += ClosedLoop::kPeriod;
  }
  const kelvara::ArmState state = loop.impl->arm_state();
  EXPECT_EQ(state.condition, ArmCondition::kMotorFault);
  EXPECT_EQ(state.reason, StopReason::kMotorError);
  EXPECT_EQ(state.reason_motor, 3);
  EXPECT_STREQ(state.motors[2].error_name, "MOS over-temperature");
  if (GetParam() == FaultReaction::kReport) {
    run(loop, 600);
    EXPECT_NEAR(loop.true_positions()[0], kTarget[0], 0.02) << "the others continue";
    return;
  }
  EXPECT_EQ(error_of([&] { move(loop, kTarget, 1.0); }),
            "ArmController: motor 3 reports an error; call recover() before the next command");
  if (GetParam() == FaultReaction::kDisable) {
    EXPECT_TRUE(loop.impl->flags.exit_flag);
    EXPECT_FALSE(loop.hardware.arm().motor(0).is_enabled());
    return;
  }
  run(loop, 400, watch);
  const JointArray held = loop.true_positions();
  EXPECT_LT(held[0], 0.9 * kTarget[0]) << "braked on the way";
  EXPECT_TRUE(loop.hardware.arm().motor(0).is_enabled());
  loop.impl->flags.recovery = Recovery::kRequested;
  run(loop, 60);
  EXPECT_EQ(loop.impl->flags.recovery, Recovery::kDone);
  EXPECT_TRUE(loop.hardware.arm().motor(2).is_enabled());
  EXPECT_EQ(loop.impl->arm_state().condition, ArmCondition::kHolding);
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_NEAR(loop.true_positions()[i], held[i], i == 2 ? 0.3 : 0.1) << "joint " << i + 1;
  }
}

TEST(FloatingArm, ThatNoLongerReportsWhereItIsKeepsFloating) {
  ClosedLoop loop(kelvara::ArmOptions{}, kTarget);
  run(loop, 10);
  loop.impl->publish_kdl_gravity_comp_command();
  run(loop, 10);
  loop.hardware.change_replies([](Replies& replies) { replies.clear(); });
  run(loop, 100);
  EXPECT_EQ(loop.impl->arm_state().condition, ArmCondition::kBusSilent);
  EXPECT_TRUE(loop.hardware.arm().floats());
}

INSTANTIATE_TEST_SUITE_P(Each, FaultReactions,
                         ::testing::Values(FaultReaction::kReport, FaultReaction::kHold,
                                           FaultReaction::kDisable));

TEST(Options, HoldAtTheStartAndKeepTheCeilingOfTheSpeed) {
  kelvara::ArmOptions options;
  options.velocity_scale = 0.05;  // 0.525 rad/s for joint 1
  ClosedLoop loop(options, kTarget);
  CommandWatch watch;
  run(loop, 200, watch);
  EXPECT_LT(watch.largest_step(), 0.002) << "holds where it is";
  EXPECT_EQ(loop.impl->arm_state().condition, ArmCondition::kHolding);
  move(loop, JointArray{}, 0.1);
  run(loop, 400, watch);
  EXPECT_EQ(loop.impl->arm_state().condition, ArmCondition::kMoving);
  EXPECT_LT(watch.largest_step(), 1.1 * 15.5 * 0.05 * kCycleS + 0.002);
  run(loop, 1200);
  EXPECT_NEAR(loop.true_positions()[0], 0.0, 0.02);
}

TEST(Options, RefuseAMotorThatDoesNotAnswer) {
  SimulatedHardware hardware(false);
  hardware.arm().motor(3).set_silent(true);
  hardware.answer();
  CapturedOutput output;
  kelvara::ArmOptions options;
  options.interface = TestBus::kInterface;
  EXPECT_EQ(error_of([&] { const ArmController::Impl impl(options); }),
            "ArmController: motor 4 does not answer; its angle reads as zero");
  hardware.halt();
  EXPECT_FALSE(hardware.arm().motor(0).is_enabled());
  options.velocity_scale = 1.5;
  EXPECT_EQ(error_of([&] { const ArmController::Impl impl(options); }),
            "invalid argument: ArmOptions: velocity_scale must be in (0, 1]");
}

}  // namespace
