// The whole controller with its threads, on an arm that runs in real time.

#include "kelvara/arm_controller.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "support/captured_output.hpp"
#include "support/outcomes.hpp"
#include "support/replaced_stream.hpp"
#include "support/simulated_hardware.hpp"
#include "support/waiting.hpp"

namespace {

using kelvara::damiao_motor::MIT_MODE;

TEST(ArmControllerWithGripper, ClosesItAtTheStartAndMovesItsJawsAsCommanded) {
  CapturedOutput output;
  SimulatedHardware hardware(false);
  hardware.live();
  ArmController arm(true, TestBus::kInterface, false, MIT_MODE);
  const auto opens_to = [&](double distance) {
    return eventually([&] { return std::abs(arm.get_gripper_distance() - distance) < 0.002; });
  };
  arm.openGripper();
  EXPECT_TRUE(opens_to(0.085));
  EXPECT_GT(arm.get_gripper_position(), 0.97);
  arm.setGripperPosition(-0.1);
  EXPECT_TRUE(opens_to(0.0));
  arm.setGripperDistance(100);
  EXPECT_TRUE(opens_to(0.085));
  EXPECT_NE(output.err().find("[Warning] Gripper position must be in [0, 1], but got: -0.1. Value "
                              "will be clamped.\n"),
            std::string::npos);
  EXPECT_NE(output.err().find("[Warning] Gripper distance must be in [0mm, 85 mm], but got: 100. "
                              "Value will be clamped.\n"),
            std::string::npos);
  arm.identify_gravity_compensation();
  const Eigen::VectorXd q = arm.get_joint();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_LT((arm.get_joint() - q).norm(), 0.1);
}

TEST(OverTorque, WarnsThenStopsTheArmAndLeavesTheProcessAlive) {
  CapturedOutput output;
  SimulatedHardware hardware(false, {.with_gripper = false, .load_kg = 0.0, .start = {}});
  hardware.arm().set_tool_force({0.0, 30.0, 0.0});  // 7.6 N·m about joint 5, 0.25 m away
  hardware.live();
  ArmController arm(false, TestBus::kInterface, false, MIT_MODE);
  const auto prints = [&](const std::string& text) {
    return eventually([&] { return output.err().find(text) != std::string::npos; });
  };
  ASSERT_TRUE(prints("[torque_monitor] trigger emergency_stop on joint 5, avg_torque="));
  EXPECT_TRUE(prints("[control_loop] loop exited. exit_flag=1 emergency_stop_flag=1\n"));
  EXPECT_TRUE(prints("[torque_monitor] loop exited. exit_flag=1 emergency_stop_flag=1\n"));
  const std::string lines = output.out();
  const std::string lasting = " 平均力矩超阈值已持续 ";
  const std::size_t warning = lines.find("⚠️ 警告：电机5 平均力矩：");
  const std::size_t stop = lines.find("❌ 电机5" + lasting);
  ASSERT_NE(stop, std::string::npos);
  ASSERT_LT(warning, stop);
  // A pass adds what has passed; the first line comes with the pass that reaches the limit.
  const auto seconds_at = [&](std::size_t from) {
    return std::stod(lines.substr(lines.find(lasting, from) + lasting.size()));
  };
  EXPECT_GE(seconds_at(warning), 2.0);
  EXPECT_GE(seconds_at(stop), 6.0);
  EXPECT_LT(seconds_at(lines.rfind("⚠️ 警告：电机5", stop)), 6.0);
  EXPECT_NO_THROW(arm.set_joint(std::vector<double>(6, 0.0), 1.0));
  EXPECT_TRUE(arm.get_joint().allFinite());
  EXPECT_EQ(arm.state().condition, kelvara::ArmCondition::kStoppedByMonitor);
  EXPECT_EQ(arm.state().reason_motor, 5);
  // The arm has fallen as far as it can.
  ASSERT_TRUE(arm.recover());
  EXPECT_TRUE(eventually([&] {
    return arm.state().condition == kelvara::ArmCondition::kHolding &&
           arm.state().motors[4].error_code == 1;
  }));
  arm.cleanup();
  hardware.halt();
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_FALSE(hardware.arm().motor(i).is_enabled()) << i;
  }
}

TEST(OverTorque, StopsTheArmWhileNobodyReadsItsLines) {
  bool stopped = false;
  SimulatedHardware hardware(false, {.with_gripper = false, .load_kg = 0.0, .start = {}});
  hardware.arm().set_tool_force({0.0, 30.0, 0.0});
  hardware.live();
  {
    const ReplacedStream out(STDOUT_FILENO);
    const ReplacedStream err(STDERR_FILENO);
    out.fill();
    err.fill();
    BusPeer witness;
    ArmController arm(false, TestBus::kInterface, false, MIT_MODE);
    stopped = eventually([&] {
      const auto frames = witness.receive(std::chrono::milliseconds(0));
      return std::find(frames.begin(), frames.end(), parse_frame("001#FFFFFFFFFFFFFFFD")) !=
             frames.end();
    });
    arm.cleanup();
  }
  hardware.halt();
  EXPECT_TRUE(stopped);
  EXPECT_FALSE(hardware.arm().motor(4).is_enabled());
}

TEST(ArmControllerWithOptions, HoldsReportsItsStateAndIsClosedAfterCleanup) {
  CapturedOutput output;
  SimulatedHardware hardware(
      false, {.with_gripper = true, .load_kg = 0.0, .start = {0.3, 0.4, -0.3, 0.2, 0.4, 0.6}});
  hardware.live();
  kelvara::ArmOptions options;
  options.interface = TestBus::kInterface;
  options.with_gripper = true;
  // A machine that stands still for 0.1 s makes the motors silent.
  options.on_fault = kelvara::FaultReaction::kReport;
  ArmController arm(options);
  EXPECT_NEAR(arm.state().q[5], 0.6, 0.01) << "known from the start";
  const auto reaches = [&](kelvara::ArmCondition condition) {
    return eventually([&] { return arm.state().condition == condition; });
  };
  ASSERT_TRUE(reaches(kelvara::ArmCondition::kHolding));
  kelvara::ArmState state = arm.state();
  EXPECT_NEAR(state.q[5], 0.6, 0.01);
  EXPECT_NEAR(state.q_command[5], 0.6, 0.01) << "it has not gone home";
  EXPECT_TRUE(state.gripper.valid);
  for (const kelvara::MotorState& motor : state.motors) {
    EXPECT_STREQ(motor.error_name, "Enabled");
    EXPECT_LT(motor.feedback_age_s, 0.1);
    EXPECT_GT(motor.mos_temperature, 0);
  }
  EXPECT_EQ(state.files->settings_path, arm.description_files().settings_path);
  arm.set_joint(std::vector<double>(6, 0.2), 0.5);
  EXPECT_EQ(arm.state().condition, kelvara::ArmCondition::kMoving) << "at once";
  EXPECT_TRUE(reaches(kelvara::ArmCondition::kHolding));
  EXPECT_TRUE(arm.recover()) << "nothing to recover from";
  arm.identify_gravity_compensation();
  EXPECT_TRUE(reaches(kelvara::ArmCondition::kFloating));
  hardware.halt();  // no motor answers any more
  EXPECT_TRUE(reaches(kelvara::ArmCondition::kBusSilent));
  std::thread recovery([&] { EXPECT_FALSE(arm.recover()); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  arm.cleanup();  // ends the recovery, too
  recovery.join();
  EXPECT_EQ(arm.state().condition, kelvara::ArmCondition::kClosed);
}

struct RunningController : ::testing::Test {
  RunningController() {
    hardware.live();
    arm = std::make_unique<ArmController>(false, TestBus::kInterface, false, MIT_MODE);
    EXPECT_TRUE(eventually([this] { return !arm->get_joint().isZero(); })) << "first feedback";
  }

  bool arrives_at(const Eigen::VectorXd& q) {
    return eventually([&] { return (arm->get_joint() - q).cwiseAbs().maxCoeff() < 0.01; });
  }

  CapturedOutput output;
  SimulatedHardware hardware{
      false, {.with_gripper = false, .load_kg = 0.0, .start = {0.2, -0.2, 0.2, 0.1, 0.2, 0.3}}};
  std::unique_ptr<ArmController> arm;
};

#ifdef __SANITIZE_THREAD__
constexpr std::chrono::seconds kBusyTime{10};
#else
constexpr std::chrono::seconds kBusyTime{2};
#endif

TEST_F(RunningController, TakesEveryCallFromFourThreadsAtOnce) {
  const auto end = std::chrono::steady_clock::now() + kBusyTime;
  const auto repeat = [end](auto action) {
    return std::thread([end, action] {
      for (int k = 0; std::chrono::steady_clock::now() < end; ++k) {
        action(k);
        std::this_thread::sleep_for(std::chrono::microseconds(500));
      }
    });
  };
  const std::vector<double> there{0.3, 0.2, -0.1, 0.2, -0.3, 0.4};
  const std::vector<double> home(6, 0.0);
  std::atomic<int> solved{0};
  std::array<std::thread, 4> threads{
      repeat([&](int) {
        EXPECT_TRUE(arm->get_joint().allFinite());
        EXPECT_TRUE(arm->get_joint_velocities().allFinite());
        EXPECT_TRUE(arm->get_joint_torques().allFinite());
        EXPECT_EQ(arm->get_gripper_distance(), -1.0);
      }),
      repeat([&](int k) {
        switch (k % 400) {
          case 0:
            return arm->set_joint(there, 0.15);
          case 100:
            return arm->move_joint_waypoints({there, home}, 0.4, 0.0, 400.0);
          case 200:
            return arm->set_joint_raw(home, home);
          case 300:
            return arm->identify_gravity_compensation();
          default:
            return;
        }
      }),
      repeat([&](int) {
        solved += arm->solve_ik({0.5, 0.1, 0.3}, {0, 0, 0}, home) ? 1 : 0;
        EXPECT_TRUE(std::isfinite(arm->get_end_effector_pose()[0]));
      }),
      repeat([&](int k) {
        if (k % 200 < 50) {
          arm->set_end_effector_pose_raw({0.55, 0.0005 * (k % 50), 0.33}, {0, 0, 0});
        } else if (k % 200 == 100) {
          arm->set_end_effector_pose({0.5, 0.1, 0.3}, {0, 0, 0}, 0.2);
        }
      })};
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_GT(solved, 0);
  EXPECT_EQ(output.err().find("exception"), std::string::npos) << output.err();
  arm->set_joint(home, 0.5);
  EXPECT_TRUE(arrives_at(Eigen::VectorXd::Zero(6)));
}

TEST_F(RunningController, RefusesBadArgumentsBeforeAnythingChanges) {
  const std::vector<double> six(6, 0.1);
  const std::vector<double> five(5, 0.1);
  std::vector<double> odd = six;
  odd[3] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(error_of([&] { arm->set_joint(five, 0.0); }), "invalid argument: q_end size mismatch");
  EXPECT_EQ(error_of([&] { arm->set_joint(six, 0.0); }), "invalid argument: tf must be positive");
  EXPECT_EQ(error_of([&] { arm->set_joint(odd, 1.0); }), "invalid argument: q_end must be finite");
  EXPECT_EQ(error_of([&] { arm->set_joint_raw(five, five); }),
            "invalid argument: q_end length does not match num_joints");
  EXPECT_EQ(error_of([&] { arm->set_joint_raw(six, five); }),
            "invalid argument: v_end length does not match num_joints");
  EXPECT_EQ(error_of([&] { arm->set_joint_raw(six, odd); }),
            "invalid argument: v_end must be finite");
  EXPECT_TRUE(arrives_at(Eigen::VectorXd::Zero(6))) << "still on its way home";
  arm->openGripper();
  EXPECT_EQ(arm->get_gripper_distance(), -1.0);
  EXPECT_NE(output.out().find("该模式未包含夹爪\n该模式未包含夹爪\n"), std::string::npos);
}

TEST_F(RunningController, StopsItsThreadThenDisablesTheMotorsOnce) {
  BusPeer witness;
  std::thread other([&] { arm->cleanup(); });
  arm->cleanup();
  other.join();
  arm->cleanup();
  EXPECT_EQ(error_of([&] { arm->get_joint(); }), "ArmController: called after cleanup()");
  EXPECT_EQ(error_of([&] { arm->set_joint(std::vector<double>(6, 0.0), 1.0); }),
            "ArmController: called after cleanup()");
  arm.reset();
  int disabled = 0;
  int commands_after = 0;
  for (const BusFrame& frame : witness.receive()) {
    const bool disable = frame.data == "FFFFFFFFFFFFFFFD";
    disabled += disable ? 1 : 0;
    commands_after += !disable && disabled > 0 && frame.id < 0x11 ? 1 : 0;
  }
  EXPECT_EQ(disabled, 6);
  EXPECT_EQ(commands_after, 0);
  hardware.halt();
  EXPECT_NE(output.err().find("[torque_monitor] loop exited. exit_flag=1 emergency_stop_flag=0\n"),
            std::string::npos);
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_FALSE(hardware.arm().motor(i).is_enabled()) << i;
  }
}

}  // namespace
