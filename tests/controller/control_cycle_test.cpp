// The control loop, cycle by cycle with the test's own time, on the simulated arm.

#include "controller/control_cycle.hpp"

#include <cmath>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/closed_loop.hpp"
#include "support/edited_description.hpp"

namespace {

using kelvara::JointArray;
using kelvara::damiao_motor::ControlMode;
using kelvara::damiao_motor::MIT_MODE;
using kelvara::damiao_motor::POS_VEL_MODE;

/// The command that the next cycle would see.
kelvara::motion::Command current_command(ClosedLoop& loop) {
  return loop.impl->slot.snapshot({loop.now}).command;
}

struct Tracking : ::testing::TestWithParam<ControlMode> {};

TEST_P(Tracking, TwoTimedMovesEndWhereTheyShouldWithoutJumpOrOvershoot) {
  ClosedLoop loop(GetParam());
  const JointArray target{0.6, 0.5, -0.4, 0.5, -0.6, 0.8};
  JointArray start{};
  CommandWatch watch(start);
  for (const JointArray& goal : {target, JointArray{}}) {
    loop.impl->publish_joint_trajectory_command({goal.begin(), goal.end()}, 2.0);
    JointArray peak_error{};
    JointArray overshoot{};
    for (int k = 0; k < 960; ++k) {  // 2 s of motion, 0.4 s of rest
      loop.cycle();
      watch.look();
      const double s = std::min(k * 0.0025 / 2.0, 1.0);
      const double blend = std::pow(s, 4) * (35 + s * (-84 + s * (70 - 20 * s)));
      const JointArray q = loop.true_positions();
      for (std::size_t i = 0; i < 6; ++i) {
        const double way = goal[i] - start[i];
        peak_error[i] = std::max(peak_error[i], std::abs(start[i] + way * blend - q[i]));
        overshoot[i] = std::max(overshoot[i], (q[i] - goal[i]) * (way > 0 ? 1 : -1));
      }
    }
    const auto held = std::get<kelvara::motion::JointTarget>(current_command(loop));
    EXPECT_EQ(held.target_q, goal);
    for (std::size_t i = 0; i < 6; ++i) {
      EXPECT_LT(std::abs(loop.true_positions()[i] - goal[i]), 0.02) << "joint " << i + 1;
      EXPECT_LT(peak_error[i], 0.06) << "joint " << i + 1;
      EXPECT_LT(overshoot[i], 0.02) << "joint " << i + 1;
    }
    start = goal;
  }
  watch.look(std::chrono::milliseconds(30));
  // The fastest joint moves 0.9 rad/s: 2.2 mrad in a period; a jump back to an old end is 0.8 rad.
  EXPECT_GT(watch.largest_step(), 0.001);
  EXPECT_LT(watch.largest_step(), 0.008);
}

INSTANTIATE_TEST_SUITE_P(BothModes, Tracking, ::testing::Values(MIT_MODE, POS_VEL_MODE));

TEST(ControlLoop, PublishesFeedbackOnTheJointSide) {
  const JointArray start{0.3, -0.2, 0.4, 0.1, -0.5, 0.6};
  ClosedLoop loop(MIT_MODE, start);
  JointArray q{1, 1, 1, 1, 1, 1};
  EXPECT_FALSE(loop.impl->state.try_get_latest_joint_state(q));
  EXPECT_EQ(q[0], 1.0);
  for (int k = 0; k < 400; ++k) {
    loop.cycle();
  }
  JointArray tau{};
  double opening = -1.0;
  ASSERT_TRUE(loop.impl->state.try_get_latest_joint_state(q));
  ASSERT_TRUE(loop.impl->state.try_get_latest_torque_state(tau));
  ASSERT_TRUE(loop.impl->state.try_get_latest_gripper_distance_state(opening));
  EXPECT_NEAR(opening, 0.0, 1e-3);
  const JointArray true_tau = loop.hardware.arm().joint_torques();
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_NEAR(q[i], loop.true_positions()[i], 0.002) << "joint " << i + 1;
    EXPECT_NEAR(q[i], start[i], 0.02) << "held without a command, joint " << i + 1;
    EXPECT_NEAR(tau[i], true_tau[i], 0.3) << "joint " << i + 1;
  }
  EXPECT_LT(tau[1], -3.0) << "joint 2 carries the arm";
}

TEST(ControlLoop, FloatsInGravityCompensationAndRelaxesTheGripper) {
  const JointArray start{0.3, 0.4, -0.3, 0.2, 0.4, 0.6};
  ClosedLoop loop(MIT_MODE, start);
  BusPeer witness;
  loop.impl->publish_kdl_gravity_comp_command();
  for (int k = 0; k < 400; ++k) {
    loop.cycle(/*extra_frames=*/1);
  }
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_NEAR(loop.true_positions()[i], start[i], 0.01) << "joint " << i + 1;
  }
  for (const BusFrame& frame : witness.receive()) {
    if (frame.id == 7) {
      EXPECT_EQ(frame.data, "7FFF7FF0000007FF");
    } else if (frame.id < 7) {
      EXPECT_EQ(frame.data.substr(0, 13), "7FFF7FF000000") << "a torque alone";
    }
  }
}

TEST(ControlLoop, PositionVelocityModeAnswersGravityCompensationWithOneWarning) {
  ClosedLoop loop(POS_VEL_MODE);
  BusPeer witness;
  loop.impl->publish_kdl_gravity_comp_command();
  loop.cycle(1);
  loop.cycle(1);
  EXPECT_THAT(loop.output.err(),
              ::testing::EndsWith("[control_loop] Gravity compensation torque feedforward is "
                                  "disabled in POS_VEL_MODE; falling back to position/velocity "
                                  "hold.\n"));
  int held = 0;
  for (const BusFrame& frame : witness.receive()) {
    // A joint whose motor is mounted the other way round gets minus zero.
    const bool zero = frame.data == "0000000000000000" || frame.data == "0000008000000000";
    held += frame.id > 0x100 && frame.id < 0x107 && zero ? 1 : 0;
  }
  EXPECT_EQ(held, 12);
}

TEST(ControlLoop, SendsTheGripperItsCurrentCommandEveryFiveMilliseconds) {
  ClosedLoop loop(MIT_MODE);
  loop.impl->publish_gripper_distance_command(0.04);
  for (int k = 0; k < 400; ++k) {
    loop.cycle(/*extra_frames=*/k % 2 == 0 ? 1 : 0);
  }
  double opening = 0.0;
  ASSERT_TRUE(loop.impl->state.try_get_latest_gripper_distance_state(opening));
  EXPECT_NEAR(opening, 0.04, 0.002);
}

TEST(ControlLoop, DisablesEveryMotorAndEndsOnAnEmergencyStop) {
  ClosedLoop loop(MIT_MODE);
  loop.cycle();
  BusPeer witness;
  loop.impl->flags.emergency_stop_flag = true;
  loop.impl->cycle->run_cycle(loop.now);
  EXPECT_TRUE(loop.impl->flags.exit_flag);
  std::vector<BusFrame> expected;
  for (int motor = 1; motor <= 7; ++motor) {
    expected.push_back(parse_frame("00" + std::to_string(motor) + "#FFFFFFFFFFFFFFFD"));
  }
  EXPECT_EQ(witness.receive(), expected);
  EXPECT_THAT(loop.output.err(),
              ::testing::EndsWith(
                  "[control_loop] emergency_stop_flag=1, calling disable_all()\n"
                  "[control_loop] disable_all done, exit_flag set, control loop exiting\n"));
}

TEST(ControlLoop, ClipsAndCountsFeedForwardTorquesOnceASecond) {
  const EditedDescription description;
  description.edit("gravity_tau_limits: [", "gravity_tau_limits: [1, 1, 1, 1, 1, 1]  # [");
  ClosedLoop loop(MIT_MODE);
  loop.impl->publish_joint_raw_command(std::vector<double>(6, 0.0), std::vector<double>(6, 0.0));
  for (int k = 0; k <= 400; ++k) {
    loop.cycle();
  }
  // Joints 2, 3 and 4 carry more than 1 N·m; the first report covers a cycle, the next 400.
  EXPECT_THAT(loop.output.err(),
              ::testing::EndsWith("[control_loop] tau clipped count in last 1s: 3\n"
                                  "[control_loop] tau clipped count in last 1s: 1200\n"));
}

TEST(ControlLoop, RecordsWhatACycleMeasuredComputedAndSent) {
  const JointArray start{0.3, 0.4, -0.3, 0.2, 0.4, 0.6};
  ClosedLoop loop(MIT_MODE, start);
  BusPeer witness;
  loop.cycle();
  const auto& record = loop.impl->cycle->record();
  const auto& sent = std::get<kelvara::controller::MitCommands>(record.sent);
  std::size_t commands = 0;
  for (const BusFrame& frame : witness.receive()) {
    if (frame.id >= 1 && frame.id <= 6) {
      EXPECT_NEAR(commanded_position(frame), sent[frame.id - 1].q, 4e-4);
      ++commands;
    }
  }
  EXPECT_EQ(commands, 6U);
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_NEAR(record.measured[i], start[i], 1e-3) << "joint " << i + 1;
    EXPECT_EQ(record.set_point.q[i], record.measured[i]) << "no command: it holds";
    EXPECT_EQ(std::abs(record.torque[i]), std::abs(sent[i].tau)) << "joint " << i + 1;
  }
}

TEST(ControlLoop, AJointTargetIsClampedAndKeepsItsVelocity) {
  ClosedLoop loop(MIT_MODE);
  loop.impl->publish_joint_raw_command({9, -9, 9, -9, 9, -9}, {1, 2, 3, 4, 5, 6});
  const auto target = std::get<kelvara::motion::JointTarget>(current_command(loop));
  EXPECT_EQ(target.target_q, (JointArray{2.8, -1.57, 1.4, -1.75, 1.57, -2.9}));
  EXPECT_EQ(target.target_dq, (JointArray{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(ArmController::Impl::clamp(5, 10, 0), 10);
}

}  // namespace
