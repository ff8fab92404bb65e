// The simulated body against the library's model of the same arm: MuJoCo against KDL. And the arm
// as a whole, stepped by hand.

#include "simulation/simulated_arm/arm_physics.hpp"

#include <fstream>
#include <random>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kelvara/kinematics/kinematics.hpp"
#include "simulation/simulated_arm/simulated_arm.hpp"
#include "support/temporary_directory.hpp"

namespace kelvara::simulation {
namespace {

using Joints = ArmPhysics::Joints;

struct ArmPhysicsTest : ::testing::Test {
  RobotDescription description =
      load_robot_description("config/BrimloV2.SLDASM.urdf", "config/robot_kinematics.yaml");
  ArmPhysics physics{description};
  RobotKinematics model;
  std::mt19937 random{5};

  Joints draw(double spread) {
    Joints values;
    for (double& value : values) {
      value = std::normal_distribution<double>(0.0, spread)(random);
    }
    return values;
  }
};

TEST_F(ArmPhysicsTest, ObeysTheLibrarysInverseDynamicsAndKinematics) {
  const Joints rotors = ArmPhysics::rotor_inertia();
  for (int trial = 0; trial < 200; ++trial) {
    const Joints q = draw(0.6);
    const Joints dq = draw(1.0);
    const Joints ddq = draw(3.0);
    const Joints torque = physics.inverse_dynamics(q, dq, ddq);
    Joints expected{};
    model.inverse_dynamics(q.data(), dq.data(), ddq.data(), expected.data());
    for (std::size_t i = 0; i < 6; ++i) {
      EXPECT_NEAR(torque[i], expected[i] + rotors[i] * ddq[i], 1e-6) << "joint " << i + 1;
    }
    physics.set_positions(q);
    const auto pose = model.forwardKinematics_kdl({q.begin(), q.end()});
    const Triple tool = physics.tool_position();
    for (std::size_t axis = 0; axis < 3; ++axis) {
      EXPECT_NEAR(tool[axis], pose[axis], 1e-9);
    }
  }
}

TEST_F(ArmPhysicsTest, FallsWithoutTorqueAndRestsAtItsStops) {
  for (int step = 0; step < 5000; ++step) {
    physics.step({});
  }
  EXPECT_NEAR(physics.positions()[1], 1.92, 0.05);
  for (const double velocity : physics.velocities()) {
    EXPECT_LT(std::abs(velocity), 0.05);
  }
}

canfd_frame frame_of(unsigned id, const std::array<std::uint8_t, 8>& data) {
  canfd_frame frame{};
  frame.can_id = id;
  frame.len = 8;
  std::copy(data.begin(), data.end(), frame.data);
  return frame;
}

TEST_F(ArmPhysicsTest, AHandAtTheToolIsFeltAtEveryJointUntilItLetsGo) {
  const Joints pose{0.3, 0.4, -0.5, 0.4, 0.6, 0.2};
  const Triple pull{15.0, -20.0, 25.0};
  SimulatedArm arm(description, {.with_gripper = false, .load_kg = 0.0, .start = pose});
  std::vector<canfd_frame> replies;
  for (unsigned id = 1; id <= 6; ++id) {
    const canfd_frame mode =
        frame_of(0x7FF, {static_cast<std::uint8_t>(id), 0, 0x55, 10, 2, 0, 0, 0});
    arm.receive(mode, replies);
    arm.receive(frame_of(id, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFC}), replies);
  }
  ASSERT_EQ(replies.size(), 12U);
  const auto settled_torques = [&] {
    arm.advance(std::chrono::seconds(4));  // enabled, the motors hold the angles where they were
    return arm.joint_torques();
  };
  const Joints before = settled_torques();
  arm.set_tool_force(pull);
  const Joints pulled = settled_torques();
  arm.set_tool_force({});
  const Joints after = settled_torques();
  for (std::size_t i = 0; i < 6; ++i) {
    // Virtual work: what the pull does along the way that the tool goes with this joint alone.
    constexpr double kSmall = 1e-6;
    Joints moved = pose;
    physics.set_positions(pose);
    const Triple from = physics.tool_position();
    moved[i] += kSmall;
    physics.set_positions(moved);
    const Triple to = physics.tool_position();
    double felt = 0.0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      felt += pull[axis] * (to[axis] - from[axis]) / kSmall;
    }
    const double friction = i < 3 ? 0.4 : 0.12;  // to either side
    EXPECT_NEAR(pulled[i] - before[i], -felt, friction + 0.05) << "joint " << i + 1;
    EXPECT_NEAR(after[i], before[i], friction + 0.05) << "joint " << i + 1;
    EXPECT_NEAR(arm.joint_positions()[i], pose[i], 0.005) << "joint " << i + 1;
  }
}

TEST_F(ArmPhysicsTest, RestsInItsCradleUntilEnabledAndSinksOnceDisabled) {
  SimulatedArm arm(description, {});
  EXPECT_EQ(arm.motor_count(), 7U);
  std::vector<canfd_frame> replies;
  arm.advance(std::chrono::seconds(1));
  EXPECT_EQ(arm.joint_positions(), Joints{});
  arm.receive(frame_of(2, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFC}), replies);
  arm.advance(std::chrono::microseconds(999));
  EXPECT_EQ(arm.joint_positions(), Joints{}) << "no whole millisecond has passed";
  arm.advance(std::chrono::microseconds(1));
  EXPECT_NE(arm.joint_positions(), Joints{});
  arm.receive(frame_of(2, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFD}), replies);
  arm.advance(std::chrono::seconds(1));
  EXPECT_GT(arm.joint_positions()[1], 0.3);
}

TEST(RobotDescription, NamesTheFileAndWhatIsWrongInIt) {
  const auto text_of = [](const char* path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  };
  const std::string urdf = text_of("config/BrimloV2.SLDASM.urdf");
  const std::string config = text_of("config/robot_kinematics.yaml");
  TemporaryWorkingDirectory directory;
  const auto error_of = [&](std::string edited, const std::string& from, const std::string& to) {
    const bool is_urdf = edited.find("<robot") != std::string::npos;
    edited.replace(edited.find(from), from.size(), to);
    directory.write("arm.urdf", is_urdf ? edited : urdf);
    directory.write("arm.yaml", is_urdf ? config : edited);
    try {
      load_robot_description("arm.urdf", "arm.yaml");
    } catch (const std::runtime_error& error) {
      return std::string(error.what());
    }
    return std::string("no error");
  };
  EXPECT_EQ(error_of(urdf, "<parent link=\"link2\"/>", "<parent link=\"link1\"/>"),
            "arm.urdf: joint 'joint3' does not continue the chain at link 'link2'");
  EXPECT_EQ(error_of(config, "motor_signs: [1, -1,", "motor_signs: [1, 0,"),
            "arm.yaml: motor_signs must hold +1 or -1 for each joint");
  EXPECT_THAT(error_of(config, "mass: 0.4", "mass: much"), ::testing::StartsWith("arm.yaml: "));
}

}  // namespace
}  // namespace kelvara::simulation
