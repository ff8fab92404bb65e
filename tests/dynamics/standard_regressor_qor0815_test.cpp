// The generated regressor against two independent dynamics of the same arm, KDL's and MuJoCo's.

#include "kelvara/dynamics/standard_regressor_qor0815.hpp"

#include <array>
#include <cstring>
#include <random>

#include <gtest/gtest.h>
#include <kdl/chain.hpp>
#include <kdl/chainidsolver_recursive_newton_euler.hpp>

#include "kelvara/dynamics/standard_parameters.hpp"
#include "kelvara/kinematics/kinematics.hpp"
#include "simulation/simulated_arm/arm_physics.hpp"

namespace kelvara::dynamics {
namespace {

using Joints = std::array<double, 6>;
using Regressor = std::array<double, 360>;

struct State {
  Joints q, dq, ddq;
};

Regressor regressor_at(const State& at) {
  Regressor Y;
  Y.fill(std::numeric_limits<double>::quiet_NaN());  // an entry not written spoils every sum
  standard_regressor_qor0815(at.q.data(), at.dq.data(), at.ddq.data(), Y.data());
  return Y;
}

Joints torques_of(const Regressor& Y, const StandardParameters& pi) {
  Joints torque{};
  for (std::size_t entry = 0; entry < Y.size(); ++entry) {
    torque[entry % 6] += Y[entry] * pi[entry / 6];
  }
  return torque;
}

struct RegressorTest : ::testing::Test {
  RobotKinematics model;
  std::mt19937 random{815};

  double draw(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
  }
  State draw_state() {
    State state;
    for (std::size_t i = 0; i < 6; ++i) {
      state.q[i] = draw(-M_PI, M_PI);
      state.dq[i] = draw(-4.0, 4.0);
      state.ddq[i] = draw(-15.0, 15.0);
    }
    return state;
  }
  /// The arm's joints, with masses everywhere, on fixed segments too, and no tensor entry zero.
  KDL::Chain draw_masses() {
    KDL::Chain chain = model.chain();
    for (KDL::Segment& segment : chain.segments) {
      const auto length = [this] { return draw(-0.3, 0.3); };
      const auto moment = [this] { return draw(-0.05, 0.05); };
      const KDL::Vector com(length(), length(), length());
      const KDL::RotationalInertia tensor(moment(), moment(), moment(), moment(), moment(),
                                          moment());
      segment.setInertia(KDL::RigidBodyInertia(draw(0.1, 2.0), com, tensor));
    }
    return chain;
  }
};

KDL::JntArray to_kdl(const Joints& values) {
  KDL::JntArray array(6);
  std::copy(values.begin(), values.end(), array.data.data());
  return array;
}

Joints kdl_torques(KDL::ChainIdSolver_RNE& solver, const KDL::Chain& chain, const State& at) {
  KDL::JntArray torque(6);
  const KDL::Wrenches none(chain.getNrOfSegments(), KDL::Wrench::Zero());
  EXPECT_EQ(solver.CartToJnt(to_kdl(at.q), to_kdl(at.dq), to_kdl(at.ddq), none, torque), 0);
  Joints result;
  std::copy_n(torque.data.data(), 6, result.begin());
  return result;
}

void expect_kdl_torques(const KDL::Chain& chain, const StandardParameters& pi, const State& at) {
  KDL::ChainIdSolver_RNE solver(chain, KDL::Vector(0.0, 0.0, -9.81));
  const Joints expected = kdl_torques(solver, chain, at);
  const Joints torque = torques_of(regressor_at(at), pi);
  for (std::size_t i = 0; i < 6; ++i) {
    ASSERT_NEAR(torque[i], expected[i], 1e-9)
        << "joint " << i + 1 << " at q = " << ::testing::PrintToString(at.q)
        << ", dq = " << ::testing::PrintToString(at.dq)
        << ", ddq = " << ::testing::PrintToString(at.ddq);
  }
}

TEST_F(RegressorTest, TimesTheArmsParametersIsKdlsInverseDynamics) {
  const StandardParameters with_payload = standard_parameters(model.chain());
  const StandardParameters links = standard_parameters_without_payload(model.chain());
  KDL::Chain bare = model.chain();
  for (KDL::Segment& segment : bare.segments) {
    if (segment.getName() == "payload") {
      segment.setInertia(KDL::RigidBodyInertia::Zero());
    }
  }
  for (int trial = 0; trial < 10000 && !HasFatalFailure(); ++trial) {
    const State state = draw_state();
    expect_kdl_torques(bare, links, state);
    expect_kdl_torques(model.chain(), with_payload, state);
  }
}

TEST_F(RegressorTest, EveryColumnHoldsForLinksOfAnyMassAndShape) {
  for (int trial = 0; trial < 2000 && !HasFatalFailure(); ++trial) {
    const KDL::Chain chain = draw_masses();
    expect_kdl_torques(chain, standard_parameters(chain), draw_state());
  }
}

TEST_F(RegressorTest, TimesTheArmsParametersIsMuJoCosInverseDynamics) {
  simulation::RobotDescription description = simulation::load_robot_description(
      "config/BrimloV2.SLDASM.urdf", "config/robot_kinematics.yaml");
  description.payload.mass = 0.0;
  const simulation::ArmPhysics physics(description);
  const Joints rotors = simulation::ArmPhysics::rotor_inertia();
  const StandardParameters pi = standard_parameters_without_payload(model.chain());
  for (int trial = 0; trial < 1000; ++trial) {
    const State at = draw_state();
    const Joints expected = physics.inverse_dynamics(at.q, at.dq, at.ddq);
    const Joints torque = torques_of(regressor_at(at), pi);
    double largest = 0.0;
    for (const double value : expected) {
      largest = std::max(largest, std::abs(value));
    }
    for (std::size_t i = 0; i < 6; ++i) {
      ASSERT_NEAR(torque[i], expected[i] - rotors[i] * at.ddq[i], 1e-6 * largest) << "joint " << i;
    }
  }
}

TEST_F(RegressorTest, IgnoresTheFirstAngleAndLeavesInnerLinksOutOfOuterRows) {
  for (int trial = 0; trial < 100; ++trial) {
    State state = draw_state();
    const Regressor Y = regressor_at(state);
    state.q[0] = draw(-100.0, 100.0);
    const Regressor turned = regressor_at(state);
    EXPECT_EQ(std::memcmp(Y.data(), turned.data(), sizeof(Y)), 0);
    for (std::size_t column = 0; column < 60; ++column) {
      for (std::size_t row = column / 10 + 1; row < 6; ++row) {
        EXPECT_EQ(Y[6 * column + row], 0.0) << "row " << row << ", column " << column;
      }
    }
  }
}

TEST(StandardParameters, RefusesAChainOfOtherJoints) {
  KDL::Chain chain;
  for (int i = 0; i < 6; ++i) {
    chain.addSegment(KDL::Segment(KDL::Joint(i < 5 ? KDL::Joint::RotZ : KDL::Joint::TransZ)));
  }
  EXPECT_THROW(standard_parameters(chain), std::invalid_argument);
}

}  // namespace
}  // namespace kelvara::dynamics
