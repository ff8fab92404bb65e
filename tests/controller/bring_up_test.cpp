// What a controller puts on the bus before it moves anything, and when it refuses to start.

#include "controller/bring_up.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "controller/arm_controller_impl.hpp"
#include "support/captured_output.hpp"
#include "support/changing_file.hpp"
#include "support/edited_description.hpp"
#include "support/outcomes.hpp"
#include "support/simulated_hardware.hpp"

namespace {

using kelvara::damiao_motor::ControlMode;
using kelvara::damiao_motor::MIT_MODE;
using kelvara::damiao_motor::POS_VEL_MODE;

/// Builds the frames that should be seen; in a pattern, @ stands for the motor's number.
class Expected {
 public:
  explicit Expected(bool fd) : fd_(fd) {}
  void add(const std::string& pattern, int first, int last) {
    for (int motor = first; motor <= last; ++motor) {
      std::string text = pattern;
      text.replace(text.find('@'), 1, std::to_string(motor));
      frames.push_back(parse_frame(text, fd_));
    }
  }
  std::vector<BusFrame> frames;

 private:
  bool fd_;
};

std::vector<BusFrame> commands_of(const std::vector<BusFrame>& frames) {
  std::vector<BusFrame> commands;
  for (BusFrame frame : frames) {
    if (frame.id < 0x11 || frame.id > 0x17) {
      commands.push_back(frame);
    }
  }
  return commands;
}

/// Control mode, with a gripper, with CAN-FD.
struct Startup : ::testing::TestWithParam<std::tuple<ControlMode, bool, bool>> {};

TEST_P(Startup, BringsTheMotorsUpFrameByFrame) {
  const auto [mode, gripper, fd] = GetParam();
  SimulatedHardware hardware(fd);
  BusPeer witness;
  hardware.answer();
  CapturedOutput output;
  ArmController::Impl impl(TestBus::kInterface, fd, nullptr, gripper, mode);

  Expected expected(fd);
  const int last = gripper ? 7 : 6;
  if (gripper) {
    expected.add("00@#FFFFFFFFFFFFFFFB", 7, 7);
    expected.add("7FF#0@00550A01000000", 7, 7);
  }
  expected.add("7FF#0@00550900000000", 1, last);  // time-out off
  expected.add("00@#FFFFFFFFFFFFFFFB", 1, 6);     // clear errors
  if (mode == MIT_MODE) {
    expected.add("7FF#0@00550A01000000", 1, 6);
  } else {
    const auto query = [&] {
      for (const char* rid : {"04", "05", "1B"}) {
        expected.add(std::string("7FF#0@0033") + rid + "00000000", 1, 6);
      }
    };
    expected.add("7FF#0@00550A02000000", 1, 6);
    query();
    for (const char* rid : {"04", "05"}) {
      expected.add(std::string("7FF#0@0055") + rid + "00007041", 1, 3);  // 15 rad/s²
      expected.add(std::string("7FF#0@0055") + rid + "0000F041", 4, 6);  // 30 rad/s²
    }
    expected.add("7FF#0@00551B00007042", 1, 3);  // 60 1/s
    expected.add("7FF#0@00551B0000A042", 4, 6);  // 80 1/s
    query();
  }
  expected.add("7FF#0@005509E8030000", 1, last);  // time-out 1000 * 50 µs
  expected.add("00@#FFFFFFFFFFFFFFFC", 1, last);  // enable
  expected.add("7FF#0@00CC0000000000", 1, 6);     // where is the arm?
  EXPECT_EQ(commands_of(witness.receive()), expected.frames);

  hardware.halt();
  for (std::size_t i = 0; i < 7; ++i) {
    EXPECT_EQ(hardware.arm().motor(i).is_enabled(), i < 6 || gripper) << i;
    EXPECT_EQ(hardware.arm().motor(i).control_mode(), i < 6 ? mode : MIT_MODE) << i;
  }
  const std::string enabling =
      "\n=== Enabling Motors ===\n\n=== Enabling Motors Timeout Protection ===\n";
  EXPECT_THAT(output.out(), ::testing::EndsWith(enabling));
  if (mode == POS_VEL_MODE) {
    EXPECT_THAT(output.out(),
                ::testing::HasSubstr("Initial ACC: [2.000, 2.000, 2.000, 2.000, 2.000, 2.000]\n"));
    EXPECT_THAT(output.out(),
                ::testing::HasSubstr(
                    "Verified KP_APR: [60.000, 60.000, 60.000, 80.000, 80.000, 80.000]\n"));
  }
}

INSTANTIATE_TEST_SUITE_P(AllModes, Startup,
                         ::testing::Combine(::testing::Values(MIT_MODE, POS_VEL_MODE),
                                            ::testing::Bool(), ::testing::Bool()));

TEST(LateStart, WaitsForTheArmsOwnPositions) {
  const std::array<double, 6> start{0.3, -0.2, 0.4, 0.1, -0.5, 0.6};
  SimulatedHardware hardware(false, {.with_gripper = false, .load_kg = 0.0, .start = start});
  hardware.answer(std::chrono::milliseconds(6));
  CapturedOutput output;
  ArmController::Impl impl(TestBus::kInterface, false, nullptr, false, POS_VEL_MODE);
  for (std::size_t i = 0; i < 6; ++i) {
    const double motor_angle = impl.feedback.motor(i).state.position;
    EXPECT_NEAR(impl.setup.motor_signs.to_joint(i, motor_angle), start[i], 0.001)
        << "joint " << i + 1;
  }
}

struct RefusedStartDeathTest : ::testing::Test {
  RefusedStartDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  static void start(SimulatedHardware& hardware, ControlMode mode) {
    hardware.answer();
    const ArmController controller(false, TestBus::kInterface, false, mode);
  }
};

TEST_F(RefusedStartDeathTest, EndsTheProcessWhenAParameterDoesNotStick) {
  SimulatedHardware hardware(false);
  hardware.arm().motor(2).set_registers_read_only(true);
  EXPECT_EXIT(start(hardware, POS_VEL_MODE), ::testing::ExitedWithCode(1),
              "ACC verification failed at joint 3: expected 15, got 2\n");
}

TEST_F(RefusedStartDeathTest, EndsTheProcessWhenAMotorNeverAnswers) {
  SimulatedHardware hardware(false);
  hardware.arm().motor(0).set_silent(true);
  EXPECT_EXIT(start(hardware, POS_VEL_MODE), ::testing::ExitedWithCode(1),
              "ACC verification failed at joint 1: expected 15, got -1\n");
}

TEST_F(RefusedStartDeathTest, EndsTheProcessWhenJointTwoLiesBehindTheBase) {
  SimulatedHardware hardware(false);
  hardware.arm().set_joint_positions({0, -1.6, 0, 0, 0, 0});
  EXPECT_EXIT(start(hardware, MIT_MODE), ::testing::ExitedWithCode(1),
              "\\[ArmController\\] Startup rejected: joint2=-1.[0-9]* rad is below the safety "
              "threshold -1.57 rad.\n");
}

TEST_F(RefusedStartDeathTest, EndsTheProcessWhenTheSettingsCanNoLongerBeParsed) {
  SimulatedHardware hardware(false);
  const EditedDescription description;
  const auto start_with_changing_file = [&] {
    const ChangingFile file("config/robot_kinematics.yaml", "a: [");
    start(hardware, MIT_MODE);
  };
  EXPECT_EXIT(start_with_changing_file(), ::testing::ExitedWithCode(1),
              "Failed to parse POS_VEL_MODE config at .*robot_kinematics.yaml: ");
}

TEST(RefusedStart, ThrowsForAnotherModeAndForSettingsThatCannotBe) {
  SimulatedHardware hardware(false);
  BusPeer witness;
  const auto start_in = [](ControlMode mode) {
    return error_of(
        [mode] { const ArmController controller(false, TestBus::kInterface, false, mode); });
  };
  EXPECT_EQ(start_in(static_cast<ControlMode>(3)),
            "invalid argument: ArmController only supports MIT_MODE or POS_VEL_MODE.");
  const EditedDescription description;
  description.edit("motor_signs: [1,", "motor_signs: [0.5,");
  EXPECT_EQ(start_in(MIT_MODE), "invalid argument: motor_signs must contain only +1 or -1");
  // Its torques would be NaN, and their commands full torque one way.
  description.edit("mass: 0.4", "mass: .inf");
  EXPECT_EQ(start_in(MIT_MODE), "ArmController needs finite masses, inertias and lengths");
  EXPECT_TRUE(witness.receive().empty()) << "nothing is sent before the settings are known good";
}

}  // namespace
