#include "controller/command_slot.hpp"

#include <limits>
#include <thread>

#include <gtest/gtest.h>

namespace kelvara::controller {
namespace {

using motion::TimePoint;

struct CommandSlotTest : ::testing::Test {
  GripperCommand gripper() { return slot.snapshot({}).gripper; }

  CommandSlot slot;
};

TEST_F(CommandSlotTest, ClampsTheGrippersDistanceSpeedAndForceAndKeepsWhatIsNotGiven) {
  EXPECT_EQ(gripper().gripper_speed, 8.0);
  EXPECT_EQ(gripper().gripper_force, 0.1);
  EXPECT_FALSE(gripper().gripper_command_valid);
  slot.publish_gripper_distance_command(40, 5, 0.5);
  EXPECT_EQ(gripper().gripper_target_distance, 0.085);
  slot.publish_gripper_distance_command(-1);
  EXPECT_EQ(gripper().gripper_target_distance, 0.0);
  EXPECT_EQ(gripper().gripper_speed, 5.0);
  EXPECT_EQ(gripper().gripper_force, 0.5);
  slot.publish_gripper_distance_command(0.04, 50, 0);
  EXPECT_EQ(gripper().gripper_speed, 20.0);
  EXPECT_EQ(gripper().gripper_force, 0.1);
  EXPECT_TRUE(gripper().gripper_command_valid && gripper().gripper_command_active);
  slot.publish_gripper_distance_command(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(gripper().gripper_target_distance, 0.0);
}

TEST_F(CommandSlotTest, BeginsAMoveInItsFirstCycleAlone) {
  slot.publish(motion::TimedMove{{1, 1, 1, 1, 1, 1}, 2.0});
  const TimePoint first{std::chrono::seconds(5)};
  slot.snapshot({first, {0.1, 0, 0, 0, 0, 0}});
  const auto later = slot.snapshot({first + std::chrono::seconds(1), {0.9, 0, 0, 0, 0, 0}});
  const auto& move = std::get<motion::TimedMove>(later.command);
  EXPECT_EQ(move.traj_start_q[0], 0.1);
  EXPECT_EQ(move.traj_start_time, first);
}

TEST_F(CommandSlotTest, KeepsACommandThatCameWhileAMoveEnded) {
  slot.publish(motion::TimedMove{});
  const auto ended = slot.snapshot({});
  slot.publish(motion::FloatKdl{});
  slot.complete(ended.number, motion::JointTarget{});
  const auto current = slot.snapshot({});
  EXPECT_EQ(motion::command_type(current.command), 5);
  slot.complete(current.number, motion::JointTarget{{0.3}, {}});
  EXPECT_EQ(std::get<motion::JointTarget>(slot.snapshot({}).command).target_q[0], 0.3);
}

TEST_F(CommandSlotTest, ReleasesThePlanOfAReplacedCommand) {
  auto samples = std::make_shared<const std::vector<motion::WaypointTrajectorySample>>(1);
  slot.publish(motion::WaypointMove{{}, samples, 0.0025});
  EXPECT_EQ(samples.use_count(), 2);
  slot.publish(motion::FloatKdl{});
  EXPECT_EQ(samples.use_count(), 1);
}

/// A plan that notes the thread that frees it.
struct NotedPlan {
  motion::WaypointMove move() {
    using Samples = std::vector<motion::WaypointTrajectorySample>;
    return {{},
            motion::WaypointSamples(new Samples(1),
                                    [this](const Samples* samples) {
                                      freed_by = std::this_thread::get_id();
                                      delete samples;
                                    }),
            0.0025};
  }

  std::thread::id freed_by{};
};

TEST_F(CommandSlotTest, NeverLeavesAPlanToBeFreedByTheControlThread) {
  NotedPlan ended;
  NotedPlan replaced;
  slot.publish(ended.move());
  std::thread([this] {
    const auto cycle = slot.snapshot({});
    slot.complete(cycle.number, motion::JointTarget{});
  }).join();
  EXPECT_EQ(ended.freed_by, std::thread::id()) << "ended, and kept";
  slot.publish(replaced.move());
  EXPECT_EQ(ended.freed_by, std::this_thread::get_id());
  std::thread([this] {
    const auto cycle = slot.snapshot({});
    std::thread([this] { slot.publish(motion::FloatKdl{}); }).join();
  }).join();
  EXPECT_EQ(replaced.freed_by, std::thread::id()) << "replaced in the middle of a cycle, and kept";
  NotedPlan overridden;
  slot.publish(overridden.move());
  EXPECT_EQ(replaced.freed_by, std::this_thread::get_id());
  std::thread([this] { slot.override_command(motion::JointTarget{}); }).join();
  EXPECT_EQ(overridden.freed_by, std::thread::id())
      << "overridden before its first cycle, and kept";
  slot.publish(motion::FloatKdl{});
  EXPECT_EQ(overridden.freed_by, std::this_thread::get_id());
}

}  // namespace
}  // namespace kelvara::controller
