// Compares the simulated body with the library's model of the same arm: MuJoCo with KDL.

#include "simulation/simulated_arm/arm_physics.hpp"

#include <random>

#include <gtest/gtest.h>

#include "kelvara/kinematics/kinematics.hpp"

namespace kelvara::simulation {
namespace {

using Joints = ArmPhysics::Joints;

struct ArmPhysicsTest : ::testing::Test {
  RobotDescription description = load_robot_description();
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

TEST_F(ArmPhysicsTest, AgreesWithTheLibrarysInverseDynamicsAndKinematics) {
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

TEST_F(ArmPhysicsTest, CarriesTheWeightOfItsLoadAtTheTool) {
  constexpr double kLoad = 1.5;
  constexpr double kStep = 1e-6;
  ArmPhysics loaded(description, kLoad);
  const Joints q = draw(0.6);
  const Joints torque = loaded.inverse_dynamics(q, {}, {});
  const Joints unloaded = physics.inverse_dynamics(q, {}, {});
  for (std::size_t i = 0; i < 6; ++i) {
    Joints moved = q;
    const auto height_at = [&](double angle) {
      moved[i] = angle;
      loaded.set_positions(moved);
      return loaded.tool_position()[2];
    };
    const double slope = (height_at(q[i] + kStep) - height_at(q[i] - kStep)) / (2.0 * kStep);
    EXPECT_NEAR(torque[i] - unloaded[i], kLoad * 9.81 * slope, 1e-6) << "joint " << i + 1;
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

}  // namespace
}  // namespace kelvara::simulation
