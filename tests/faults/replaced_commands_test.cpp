// One command replaces another while the arm carries a load that the model does not know: how far
// the commanded positions step. Prints the table of docs/faults.md.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <vector>

#include <gtest/gtest.h>

#include "support/closed_loop.hpp"

namespace {

using kelvara::ArmState;
using kelvara::JointArray;
using kelvara::damiao_motor::MIT_MODE;

enum Kind { kTarget, kStream, kTimedMove, kWaypoints, kFloat, kKinds };
constexpr std::array<const char*, kKinds> kNames{"target", "pose stream", "timed move", "waypoints",
                                                 "floating"};
constexpr double kUnknownLoadKg = 1.5;
const JointArray kGoal{0.6, 0.5, -0.4, 0.5, -0.6, 0.8};
// The first step of a command itself: the reference accelerates by 30 rad/s² at most.
constexpr double kFirstStep = 30.0 * 0.0025 * 0.0025 + 1e-9;

void give(ClosedLoop& loop, Kind kind, const JointArray& goal) {
  const std::vector<double> q(goal.begin(), goal.end());
  const std::vector<double> zero(q.size(), 0.0);
  switch (kind) {
    case kTarget:
      return loop.impl->publish_joint_raw_command(q, zero);
    case kStream:
      return loop.impl->publish_streamed_command(q, zero);
    case kTimedMove:
      return loop.impl->publish_joint_trajectory_command(q, 1.0);
    case kWaypoints:
      return loop.impl->publish_joint_waypoint_trajectory_command({q}, 1.5, 0.0, 400.0);
    default:
      return loop.impl->publish_gravity_comp_command();
  }
}

void run(ClosedLoop& loop, int cycles, int gripper_frames = 0) {
  for (int k = 0; k < cycles; ++k) {
    loop.cycle(gripper_frames);
  }
}

/// A command under way, or at rest at the goal; a floating arm sinks from there.
void run_first(ClosedLoop& loop, Kind kind, bool in_motion) {
  run(loop, 4);
  if (kind == kFloat) {
    give(loop, kTimedMove, kGoal);
    run(loop, 800);
    give(loop, kFloat, kGoal);
    return run(loop, in_motion ? 40 : 4, 1);
  }
  give(loop, kind, kGoal);
  run(loop, in_motion ? (kind == kWaypoints || kind == kTimedMove ? 200 : 40) : 800);
}

double largest_difference(const JointArray& one, const JointArray& other) {
  double largest = 0.0;
  for (std::size_t i = 0; i < one.size(); ++i) {
    largest = std::max(largest, std::abs(one[i] - other[i]));
  }
  return largest;
}

/// The step at which the second command replaces the first, rad. It is at most the distance between
/// the arm and its command.
double step_between(Kind first, Kind second, bool in_motion) {
  ClosedLoop loop(MIT_MODE, {}, false, kUnknownLoadKg);
  run_first(loop, first, in_motion);
  const ArmState before = loop.impl->arm_state();
  give(loop, second, JointArray{});
  loop.cycle();
  const ArmState after = loop.impl->arm_state();
  const bool keeps_reference = second <= kStream && first <= kStream;
  // A plan is made from the measurement before.
  const double lag = keeps_reference ? 0.0
                                     : std::max(largest_difference(before.q, before.q_command),
                                                largest_difference(after.q, before.q_command));
  const double moved = keeps_reference ? largest_difference(before.dq_command, {}) * 0.0025 : 0.0;
  const double step = largest_difference(after.q_command, before.q_command);
  EXPECT_LE(step, lag + moved + kFirstStep) << kNames[first] << " to " << kNames[second];
  return step;
}

TEST(ReplacedCommands, StepByTheLagOfTheArmAtMost) {
  for (const bool in_motion : {false, true}) {
    std::printf("| %s | target | pose stream | timed move | waypoints |\n|---|---|---|---|---|\n",
                in_motion ? "in motion" : "at rest");
    for (const Kind first : {kTarget, kStream, kTimedMove, kWaypoints, kFloat}) {
      std::printf("| %s |", kNames[first]);
      for (const Kind second : {kTarget, kStream, kTimedMove, kWaypoints}) {
        std::printf(" %.0f |", 1e3 * step_between(first, second, in_motion));
      }
      std::printf("\n");
    }
  }
}

}  // namespace
