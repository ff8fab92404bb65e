// Planned motion in closed loop with the simulated arm.

#include "controller/motion_starter.hpp"

#include <cmath>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "support/closed_loop.hpp"

namespace {

using kelvara::ArmState;
using kelvara::JointArray;
using kelvara::kJointCount;
using kelvara::MotionHandle;
using kelvara::MotionLimits;
using kelvara::MotionOutcome;
using kelvara::MotionPlanner;
using kelvara::Plan;
using kelvara::PlanSample;
using kelvara::Pose;
using kelvara::controller::MotionStarter;
using kelvara::damiao_motor::MIT_MODE;
using kelvara::damiao_motor::POS_VEL_MODE;

constexpr double kUnknownLoadKg = 1.5;
constexpr double kPeriodS = 0.0025;
const JointArray kReady{0.0, 0.8, -0.9, 0.3, 0.4, 0.2};

/// Watches the commands of one cycle after another.
class SmoothnessWatch {
 public:
  explicit SmoothnessWatch(const ClosedLoop& loop) : loop_(loop), last_(loop.impl->arm_state()) {}

  void look() {
    const ArmState now = loop_.impl->arm_state();
    for (std::size_t i = 0; i < kJointCount; ++i) {
      const double step = now.q_command[i] - last_.q_command[i];
      farthest_step_ = std::max(farthest_step_, std::abs(step));
      sharpest_turn_ = std::max(sharpest_turn_, std::abs(step - last_step_[i]));
      largest_torque_step_ =
          std::max(largest_torque_step_, std::abs(now.tau_command[i] - last_.tau_command[i]));
      last_step_[i] = step;
    }
    last_ = now;
  }
  double farthest_step() const { return farthest_step_; }  // rad
  double sharpest_turn() const { return sharpest_turn_; }  // difference of successive steps, rad
  double largest_torque_step() const { return largest_torque_step_; }

 private:
  const ClosedLoop& loop_;
  ArmState last_;
  JointArray last_step_{};
  double farthest_step_ = 0.0;
  double sharpest_turn_ = 0.0;
  double largest_torque_step_ = 0.0;
};

MotionHandle move_joint(ClosedLoop& loop, const JointArray& target, double speed = 1.0) {
  const MotionPlanner planner = loop.impl->motions->planner({speed, 0.0});
  return loop.impl->motions->move(
      MotionStarter::From::kMotion,
      [&](const PlanSample& start) { return planner.plan_joint(start, target); },
      [](const Plan&) {});
}

/// Runs until the motion has ended, ten seconds at most.
template <typename... Watch>
void finish(ClosedLoop& loop, const MotionHandle& motion, Watch&... watch) {
  for (int k = 0; k < 4000 && !motion.is_done(); ++k) {
    loop.run(1, watch...);
  }
  ASSERT_TRUE(motion.is_done());
}

void go(ClosedLoop& loop, const JointArray& target) {
  loop.run(4);
  finish(loop, move_joint(loop, target));
  loop.run(200);
}

JointArray near(std::mt19937& random, const JointArray& q, double reach) {
  std::uniform_real_distribution<double> share(-reach, reach);
  JointArray target = q;
  for (double& angle : target) {
    angle += share(random);
  }
  return target;
}

// ---- Smoothness -----------------------------------------------------------

/// With 1.5 kg that the model does not know, so that the arm hangs far from its command.
TEST(MotionStarter, NeverStepsInAnySequenceOfMovesStopsAndSpeeds) {
  std::mt19937 random(11);
  ClosedLoop loop(MIT_MODE, {}, false, kUnknownLoadKg);
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
    EXPECT_LE(watch.farthest_step(), (floats ? 3.0 : 1.2 * std::max(speed, 1.0)) * kPeriodS);
    loop.run(100);
    EXPECT_EQ(loop.impl->arm_state().dq_command, JointArray{});
  }
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
  const MotionHandle faulty = move_joint(loop, away);
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
  loop.impl->publish_gravity_comp_command();
  loop.cycle(1);
  EXPECT_EQ(refused_joint(Code::kStartMismatch, [&] { loop.impl->motions->execute(plan); }), 0);
}

// ---- Accuracy -------------------------------------------------------------

/// 1 rad in 0.6 s, which takes wider limits than the shipped ones.
TEST(MotionStarter, KeepsJointOneWithinThreeMilliradiansOnAFastMove) {
  ClosedLoop loop(MIT_MODE);
  go(loop, kReady);
  MotionLimits limits = loop.impl->motions->limits(1.0);
  limits.velocity.fill(4.0);
  limits.acceleration.fill(25.0);
  limits.jerk.fill(400.0);
  const MotionPlanner planner(loop.impl->kinematics, limits);
  JointArray target = loop.impl->arm_state().q_command;
  target[0] += 1.0;
  const Plan plan = planner.plan_joint(loop.impl->arm_state().q_command, target, {0.6});
  const MotionHandle motion = loop.impl->motions->execute(plan);
  double sum = 0.0;
  int count = 0;
  for (; !motion.is_done() && count < 1000; ++count) {
    const double commanded = loop.impl->arm_state().q_command[0];
    const double error = loop.true_positions()[0] - commanded;
    sum += error * error;
    loop.cycle();
  }
  EXPECT_NEAR(count * kPeriodS, 0.6, 0.01);
  const double rms = std::sqrt(sum / count);
  RecordProperty("joint_1_error_mrad_rms", std::to_string(1e3 * rms));
  EXPECT_LE(rms, 3e-3);
}

/// 30 cm to the right in front of the arm.
struct Line {
  std::array<double, 3> from{0.4, 0.15, 0.15}, to{0.4, -0.15, 0.15};
  Pose pose(const std::array<double, 3>& position) const { return {position, {0.0, 0.6, 0.0}}; }
  double distance(const std::array<double, 3>& point) const {
    double along = 0.0, length = 0.0;
    for (std::size_t k = 0; k < 3; ++k) {
      along += (point[k] - from[k]) * (to[k] - from[k]);
      length += (to[k] - from[k]) * (to[k] - from[k]);
    }
    const double s = std::min(1.0, std::max(0.0, along / length));
    double sum = 0.0;
    for (std::size_t k = 0; k < 3; ++k) {
      const double off = point[k] - from[k] - s * (to[k] - from[k]);
      sum += off * off;
    }
    return std::sqrt(sum);
  }
};

class StraightLine : public testing::TestWithParam<kelvara::damiao_motor::ControlMode> {};

/// 30 cm at 0.25 m/s with the shipped parameters.
TEST_P(StraightLine, StaysWithinTwoMillimetresOnTheArm) {
  ClosedLoop loop(GetParam());
  const Line line;
  const RobotKinematics& model = loop.impl->kinematics;
  go(loop, model.solve_pose(line.pose(line.from), kReady));
  const JointArray start = loop.impl->arm_state().q_command;
  const MotionPlanner planner = loop.impl->motions->planner({1.0, 0.0});
  const Plan plan = planner.plan_linear(start, {line.pose(line.to)});
  EXPECT_NEAR(plan.report().peak_tool_speed, 0.25, 1e-3);
  const MotionHandle motion = loop.impl->motions->execute(plan);
  double farthest = 0.0;
  for (int k = 0; k < 2000 && !motion.is_done(); ++k) {
    loop.cycle();
    farthest = std::max(farthest, line.distance(model.pose(loop.true_positions()).position));
  }
  EXPECT_EQ(motion.wait_for(0.0), MotionOutcome::kDone);
  RecordProperty("farthest_mm", std::to_string(1e3 * farthest));
  EXPECT_LE(farthest, 2e-3);
}

INSTANTIATE_TEST_SUITE_P(EachMode, StraightLine, testing::Values(MIT_MODE, POS_VEL_MODE));

TEST(MotionStarter, StopsALineOnTheLine) {
  ClosedLoop loop(MIT_MODE);
  const Line line;
  const RobotKinematics& model = loop.impl->kinematics;
  go(loop, model.solve_pose(line.pose(line.from), kReady));
  const JointArray start = loop.impl->arm_state().q_command;
  const MotionPlanner planner = loop.impl->motions->planner({1.0, 0.0});
  const Plan plan = planner.plan_linear(start, {line.pose(line.to)});
  const MotionHandle motion = loop.impl->motions->execute(plan);
  loop.run(200);
  const MotionHandle stop = loop.impl->motions->stop();
  int cycles = 0;
  for (; cycles < 1000 && !stop.is_done(); ++cycles) {
    loop.cycle();
    EXPECT_LE(line.distance(model.pose(loop.impl->arm_state().q_command).position), 1e-4);
  }
  EXPECT_LT(cycles * kPeriodS, 0.5) << "it brakes";
  EXPECT_EQ(motion.wait_for(0.0), MotionOutcome::kStopped);
}

// ---- Streams --------------------------------------------------------------

/// Targets of a sine at 50 Hz that arrive up to a period late, then no more.
TEST(MotionStarter, FollowsAStreamWithJitterAndBrakesWhenItStops) {
  std::mt19937 random(5);
  ClosedLoop loop(MIT_MODE);
  go(loop, kReady);
  const auto sine = [](double t) { return 0.3 * (1.0 - std::cos(2.0 * t)); };
  const double start_s = std::chrono::duration<double>(loop.now.time_since_epoch()).count();
  SmoothnessWatch watch(loop);
  double next_s = 0.0, late_s = 0.0, worst = 0.0;
  for (int k = 0; k < 1200; ++k) {
    const double t = k * kPeriodS;
    if (t >= next_s + late_s) {
      kelvara::motion::Follow stream;
      stream.velocity = loop.impl->setup.motion.velocity;
      stream.limits = {loop.impl->setup.motion.acceleration, loop.impl->setup.motion.jerk};
      JointArray target = kReady;
      target[0] += sine(next_s);
      loop.impl->slot.follow(stream, {next_s, start_s + t, target});
      next_s += 0.02;
      late_s = std::uniform_real_distribution<double>(0.0, 0.02)(random);
    }
    loop.run(1, watch);
    if (t > 0.5) {
      const double lag = 0.03 + kPeriodS;  // one and a half periods of the stream
      worst = std::max(worst,
                       std::abs(loop.impl->arm_state().q_command[0] - kReady[0] - sine(t - lag)));
    }
  }
  EXPECT_LE(worst, 0.02);
  EXPECT_LE(watch.farthest_step(), 2.5 * kPeriodS);
  EXPECT_LE(watch.sharpest_turn(), 8.0 * kPeriodS * kPeriodS * 1.05);
  loop.run(300, watch);
  EXPECT_EQ(loop.impl->arm_state().dq_command, JointArray{}) << "the stream has stopped";
}

}  // namespace
