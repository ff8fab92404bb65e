// A bus that loses 1, 5 or 20 % of the frames in both directions: starts, moves and streams.
// Prints the figures of docs/faults.md; `--gtest_repeat=10` starts 120 times.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "simulation/simulated_arm/adversary.hpp"
#include "support/closed_loop.hpp"

namespace {

using kelvara::simulation::Adversary;

using kelvara::JointArray;
using kelvara::damiao_motor::ControlMode;
using kelvara::damiao_motor::MIT_MODE;
using kelvara::damiao_motor::POS_VEL_MODE;

const JointArray kGoal{0.6, 0.5, -0.4, 0.5, -0.6, 0.8};
constexpr int kStarts = 12;
constexpr int kPosVelStarts = 3;  // of them
constexpr double kCycleS = 0.0025;

Adversary::Options lossy(double share, unsigned seed) {
  return {.seed = seed, .to_motors = {.lose = share}, .to_host = {.lose = share}};
}

double largest_difference(const JointArray& one, const JointArray& other) {
  double largest = 0.0;
  for (std::size_t i = 0; i < one.size(); ++i) {
    largest = std::max(largest, std::abs(one[i] - other[i]));
  }
  return largest;
}

struct LossyBus : ::testing::TestWithParam<double> {};

// ---- Starts ----

struct Start {
  double first_command_off = 0.0;  // rad
  bool all_enabled = true;
  bool refused = false;
};

std::unique_ptr<ArmController::Impl> construct(bool with_options, ControlMode mode) {
  if (!with_options) {
    return std::make_unique<ArmController::Impl>(TestBus::kInterface, false, nullptr, true, mode);
  }
  kelvara::ArmOptions options;
  options.mode = mode;
  options.interface = TestBus::kInterface;
  options.with_gripper = true;
  return std::make_unique<ArmController::Impl>(options);
}

/// Constructs a controller and runs one cycle; again if the machine stood still meanwhile.
Start start(double share, unsigned seed, bool with_options, ControlMode mode) {
  SimulatedHardware hardware(false, {.with_gripper = true, .load_kg = 0.0, .start = kGoal});
  Adversary adversary(lossy(share, seed));
  adversary.attach(hardware.arm_bus());
  const CapturedOutput output;
  Start result = hardware.start([with_options, mode] {
    Start outcome;
    try {
      const auto impl = construct(with_options, mode);
      impl->publish_hold();
      impl->cycle->begin(kelvara::motion::Clock::now());
      impl->cycle->run_cycle(kelvara::motion::Clock::now());
      outcome.first_command_off = largest_difference(impl->arm_state().q_command, kGoal);
    } catch (const std::runtime_error&) {
      outcome.refused = true;
    }
    return outcome;
  });
  for (std::size_t i = 0; i < kGoal.size(); ++i) {
    result.all_enabled = result.all_enabled && hardware.arm().motor(i).is_enabled();
  }
  return result;
}

TEST_P(LossyBus, StartsWhereTheArmIsWithEveryMotorEnabled) {
  static unsigned seed = 0;
  for (const bool with_options : {false, true}) {
    double off = 0.0;
    int enabled = 0;
    int refused = 0;
    for (int k = 0; k < kStarts; ++k) {
      const ControlMode mode = k < kPosVelStarts ? POS_VEL_MODE : MIT_MODE;
      const Start result = start(GetParam(), ++seed, with_options, mode);
      off = std::max(off, result.first_command_off);
      enabled += result.all_enabled ? 1 : 0;
      refused += result.refused ? 1 : 0;
    }
    std::printf(
        "%s, %2.0f %% lost: of %d starts %d enabled all motors, %d were refused; first "
        "command off by %.4f rad at most\n",
        with_options ? "options" : "plain", 100 * GetParam(), kStarts, enabled, refused, off);
    EXPECT_LT(off, 0.001) << "two steps of a frame's position";
    EXPECT_EQ(enabled + refused, kStarts);
    EXPECT_EQ(refused, 0);
  }
}

// ---- Motions ----

/// The figures of one motion.
struct Motion {
  double tracking_error = 0.0;  // rad, between the arm and its command
  double largest_step = 0.0;    // rad, of the command
  double distance_from_goal = 0.0;
};

class LossyLoop {
 public:
  explicit LossyLoop(double share) : adversary_(lossy(share, 3)) {
    adversary_.attach(loop.hardware.arm_bus());
  }

  void cycle() {
    loop.cycle();
    watch_.look();
    const kelvara::ArmState state = loop.impl->arm_state();
    motion_.tracking_error = std::max(motion_.tracking_error,
                                      largest_difference(state.q_command, loop.true_positions()));
  }
  Motion result(const char* name, double share) {
    motion_.largest_step = watch_.largest_step();
    motion_.distance_from_goal = largest_difference(loop.true_positions(), kGoal);
    std::printf(
        "%s, %2.0f %% lost: tracking error %.1f mrad, step %.2f mrad, %.1f mrad from its "
        "goal\n",
        name, 100 * share, 1e3 * motion_.tracking_error, 1e3 * motion_.largest_step,
        1e3 * motion_.distance_from_goal);
    return motion_;
  }

  ClosedLoop loop{MIT_MODE};

 private:
  Adversary adversary_;
  CommandWatch watch_{JointArray{}};
  Motion motion_;
};

void expect_ordinary(const Motion& motion, double peak_velocity) {
  EXPECT_LT(motion.largest_step, 1.1 * peak_velocity * kCycleS);
  EXPECT_LT(motion.tracking_error, 0.05);
  EXPECT_LT(motion.distance_from_goal, 0.02);
}

TEST_P(LossyBus, FollowsATimedMove) {
  LossyLoop lossy_loop(GetParam());
  lossy_loop.loop.impl->publish_joint_trajectory_command({kGoal.begin(), kGoal.end()}, 1.0);
  for (int k = 0; k < 500; ++k) {
    lossy_loop.cycle();
  }
  expect_ordinary(lossy_loop.result("timed move", GetParam()), 2.1875 * 0.8);
}

TEST_P(LossyBus, FollowsWaypoints) {
  LossyLoop lossy_loop(GetParam());
  lossy_loop.cycle();
  const std::vector<double> half(6, 0.3);
  lossy_loop.loop.impl->publish_joint_waypoint_trajectory_command(
      {half, {kGoal.begin(), kGoal.end()}}, 0.0, 0.3, 400.0);
  for (int k = 0; k < 1200; ++k) {
    lossy_loop.cycle();
  }
  // A cycle that begins a little early repeats a sample; the next one skips one.
  expect_ordinary(lossy_loop.result("waypoints", GetParam()), 2.0 * 0.3 * 4.0);
}

TEST_P(LossyBus, FollowsAPoseStream) {
  LossyLoop lossy_loop(GetParam());
  for (int k = 0; k < 800; ++k) {
    const double share = std::min(k / 400.0, 1.0);
    if (k % 4 == 0) {  // 100 Hz
      std::vector<double> q(kGoal.begin(), kGoal.end());
      std::vector<double> dq = q;
      std::for_each(q.begin(), q.end(), [&](double& value) { value *= share; });
      std::for_each(dq.begin(), dq.end(), [&](double& value) { value *= share < 1.0 ? 1 : 0; });
      lossy_loop.loop.impl->publish_streamed_command(q, dq);
    }
    lossy_loop.cycle();
  }
  expect_ordinary(lossy_loop.result("pose stream", GetParam()), 1.5 * 0.8);
}

INSTANTIATE_TEST_SUITE_P(Each, LossyBus, ::testing::Values(0.01, 0.05, 0.2));

}  // namespace
