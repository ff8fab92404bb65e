// Planned motion with the controller's threads, on an arm that runs in real time.

#include <atomic>
#include <cmath>
#include <optional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kelvara/arm_controller.hpp"
#include "kelvara/motion/plan_check.hpp"
#include "support/captured_output.hpp"
#include "support/simulated_hardware.hpp"

namespace {

using kelvara::MotionHandle;
using kelvara::MotionOutcome;
using kelvara::MoveOptions;

constexpr std::array<double, 6> kReady{0.0, 0.8, -0.9, 0.3, 0.4, 0.2};
constexpr MoveOptions kFast{1.0, 0.0};

class MotionCommands : public testing::Test {
 protected:
  MotionCommands() {
    hardware_.live();
    kelvara::ArmOptions options;
    options.interface = TestBus::kInterface;
    arm.emplace(options);
  }

  CapturedOutput output;
  SimulatedHardware hardware_{false};
  std::optional<ArmController> arm;
};

TEST_F(MotionCommands, MoveTheToolStopItAndWaitForItsEnd) {
  EXPECT_EQ(arm->move_joint(kReady, kFast).wait_for(20.0), MotionOutcome::kDone);
  kelvara::Pose pose = arm->commanded_pose();
  pose.position[2] += 0.05;
  EXPECT_EQ(arm->move_linear(pose, kFast).wait_settled(0.05, 20.0), MotionOutcome::kDone);
  EXPECT_NEAR(arm->pose().position[2], pose.position[2], 0.01);
  pose.position[2] += 5.0;
  EXPECT_THROW(arm->move_linear(pose), kelvara::MotionError);
  arm->set_speed_override(0.0);
  const MotionHandle paused = arm->move_joint({}, kFast);
  EXPECT_EQ(paused.wait_for(0.2), MotionOutcome::kTimeout);
  EXPECT_EQ(paused.progress(), 0.0);
  arm->set_speed_override(1.0);
  EXPECT_EQ(arm->stop().wait_for(20.0), MotionOutcome::kDone);
  EXPECT_EQ(paused.wait(), MotionOutcome::kStopped);
}

struct NothingIsAllowed : kelvara::PlanCheck {
  void check(const kelvara::Plan& /*plan*/) const override {
    throw kelvara::MotionError(kelvara::MotionErrorCode::kCollision, "everywhere");
  }
};

TEST_F(MotionCommands, AreCheckedAgainstTheEnvironmentBeforeAnythingMoves) {
  arm->set_environment(std::make_shared<NothingIsAllowed>());
  ASSERT_EQ(arm->stop().wait_for(20.0),
            MotionOutcome::kDone);  // the first cycle has begun the hold
  const auto before = arm->state().q_command;
  EXPECT_THROW(arm->move_joint(kReady), kelvara::MotionError);
  EXPECT_THROW(arm->execute(arm->planner().plan_joint(before, kReady)), kelvara::MotionError);
  EXPECT_EQ(arm->state().q_command, before);
  arm->set_environment(nullptr);
  EXPECT_EQ(arm->move_joint(kReady, kFast).wait_for(20.0), MotionOutcome::kDone);
}

TEST_F(MotionCommands, MayComeFromSeveralThreadsUntilTheControllerEnds) {
  std::atomic<bool> end{false};
  std::atomic<int> moves{0};
  const auto call = [&](double sign) {
    while (!end) {
      std::array<double, 6> target = kReady;
      target[0] += sign * 0.3;
      try {
        const MotionHandle motion = arm->move_joint(target, kFast);
        ++moves;
        motion.wait_for(0.1);
        if (sign > 0.0) {
          arm->stop().wait_for(0.05);
        }
      } catch (const kelvara::MotionError&) {  // overtaken by the other thread
      }
    }
  };
  std::thread one(call, 1.0), other(call, -1.0);
  for (int k = 0; k < 20; ++k) {
    arm->set_speed_override(0.25 * (1 + k % 4));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(std::isfinite(arm->state().tau_command[1]));
  }
  end = true;
  one.join();
  other.join();
  EXPECT_GT(moves, 4);
  const MotionHandle last = arm->move_joint({}, kFast);
  std::thread waiting([&] { last.wait(); });
  arm.reset();
  waiting.join();
  EXPECT_TRUE(last.is_done());
}

}  // namespace
