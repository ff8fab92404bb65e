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

using kelvara::JointArray;
using kelvara::damiao_motor::MIT_MODE;
using ::testing::HasSubstr;
using Replies = std::vector<canfd_frame>;

const JointArray kTarget{0.6, 0.5, -0.4, 0.5, -0.6, 0.8};
constexpr double kUnknownLoadKg = 1.5;
constexpr double kCycleS = 0.0025;
// The largest step of a move of 0.8 rad in 1 s, with a tenth for its rounding to the frame.
constexpr double kFastestStep = 1.1 * 2.1875 * 0.8 * kCycleS;

TEST(Reference, ContinuesFromTheEndOfAMoveWithAnUnknownLoad) {
  ClosedLoop loop(MIT_MODE, {}, false, kUnknownLoadKg);
  loop.run(10);
  CommandWatch watch;
  loop.move(kTarget, 1.0);
  loop.run(800, watch);
  EXPECT_LT(watch.largest_step(), kFastestStep);
}

TEST(LostAnswers, UntilAMoveEndsAndANewOneBeginsDoNotMoveTheReferenceBack) {
  ClosedLoop loop(MIT_MODE);
  CommandWatch watch(JointArray{});
  loop.move(kTarget, 1.0);
  loop.run(100, watch);
  loop.hardware.change_replies([](Replies& replies) { replies.clear(); });
  loop.run(400, watch);
  loop.move(JointArray{}, 1.0);
  loop.run(1, watch);
  EXPECT_THAT(loop.output.err(), HasSubstr("[control_loop] joint 1 has not answered for"));
  const std::vector<double> half(6, 0.3);
  loop.impl->publish_joint_waypoint_trajectory_command({half}, 2.0, 0.0, 400.0);
  EXPECT_THAT(loop.output.err(), HasSubstr("[move_joint_waypoints] joint 6 does not answer"));
  loop.hardware.change_replies({});
  loop.run(900, watch);
  EXPECT_LT(watch.largest_step(), kFastestStep);
  EXPECT_NEAR(loop.true_positions()[5], 0.3, 0.02);
}

TEST(RegisterReplies, OfAnotherProgramsQueriesAreNoAngles) {
  ClosedLoop loop(MIT_MODE, kTarget);
  BusPeer other;
  CommandWatch watch;
  for (int k = 0; k < 300; ++k) {
    if (k % 10 == 5) {
      loop.move(kTarget, 1.0);  // starts where the arm is measured
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
  loop.run(10);
  const auto shift = [](Replies& replies) {
    for (canfd_frame& reply : replies) {
      reply.data[1] = static_cast<std::uint8_t>(reply.data[1] + 20);  // 2 rad
    }
  };
  JointArray q{};
  loop.hardware.change_replies(shift);
  loop.run(2);  // one round of feedback
  loop.impl->state.try_get_latest_joint_state(q);
  EXPECT_NEAR(q[2], 0.0, 0.1);
  loop.run(8);
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
  loop.move(JointArray{}, 2.0);
  loop.run(200, watch);
  EXPECT_LT(watch.largest_step(), 0.5 * kFastestStep);
  loop.hardware.arm().set_joint_positions(kTarget);
  loop.make_controller(MIT_MODE);
  loop.impl->publish_joint_raw_command({kTarget.begin(), kTarget.end()},
                                       std::vector<double>(6, 0.0));
  CommandWatch target_watch;
  loop.run(200, target_watch);
  EXPECT_LT(target_watch.largest_step(), 0.02);
  EXPECT_NEAR(loop.true_positions()[5], 0.5, 0.02);
}

TEST(PoseStream, ThatStopsHoldsItsLastPose) {
  ClosedLoop loop(MIT_MODE);
  loop.run(4);
  std::vector<double> q(6, 0.0);
  for (int k = 0; k < 40; ++k) {
    q[0] += 0.01;
    loop.impl->publish_streamed_command(q, {4.0, 0, 0, 0, 0, 0});
    loop.cycle();
  }
  loop.run(20);
  EXPECT_GT(loop.impl->arm_state().dq_command[0], 0.5) << "until 100 ms have passed";
  loop.run(400);
  EXPECT_NEAR(loop.impl->arm_state().q_command[0], q[0], 1e-3);
  EXPECT_NEAR(loop.impl->arm_state().dq_command[0], 0.0, 1e-2);
}

TEST(LateLoop, ContinuesTheMoveWhereItWas) {
  ClosedLoop loop(MIT_MODE);
  CommandWatch watch(JointArray{});
  loop.move(kTarget, 1.0);
  loop.run(100, watch);
  loop.now += std::chrono::seconds(10);
  loop.impl->cycle->skip(std::chrono::seconds(10), loop.now);
  loop.run(100, watch);
  EXPECT_NEAR(loop.impl->arm_state().progress, 0.5, 0.01);
  loop.run(300, watch);
  EXPECT_LT(watch.largest_step(), kFastestStep);
}

TEST(LateLoop, ThatOverrunsEveryCycleNeverMovesBack) {
  ClosedLoop loop(MIT_MODE);
  loop.move(kTarget, 1.0);
  double last = 0.0;
  for (int k = 1; k < 200; ++k) {
    loop.cycle();
    EXPECT_GE(loop.impl->arm_state().q_command[5], last - 1e-9) << k;
    last = loop.impl->arm_state().q_command[5];
    loop.now += std::chrono::microseconds(2500);  // a cycle takes two periods
    if (k % 20 == 0) {
      loop.impl->cycle->skip(std::chrono::milliseconds(51), loop.now);
    }
  }
  EXPECT_GT(last, 0.5 * kTarget[5]);
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
  loop.run(6);  // the bus delivers the last one
  EXPECT_EQ(loop.impl->arm_state().counters.foreign_commands, 20U);
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

}  // namespace
