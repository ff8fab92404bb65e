// The recursive pass against KDL's two solvers for the same dynamics.

#include "kinematics/torque_solver.hpp"

#include <algorithm>
#include <cmath>
#include <random>

#include <gtest/gtest.h>
#include <kdl/chaindynparam.hpp>
#include <kdl/chainidsolver_recursive_newton_euler.hpp>
#include <kdl/frames_io.hpp>
#include <kdl/kinfam_io.hpp>

#include "kinematics/kdl_chain.hpp"

namespace kelvara::kinematics {
namespace {

using Joints = std::vector<double>;

const KDL::Vector kGravity(0.0, 0.0, -9.81);

struct Torques : ::testing::Test {
  double number(double scale) {
    return std::uniform_real_distribution<double>(-scale, scale)(random);
  }
  description::Triple triple(double scale) { return {number(scale), number(scale), number(scale)}; }
  Joints values(std::size_t count, double scale) {
    Joints result(count);
    std::generate(result.begin(), result.end(), [&] { return number(scale); });
    return result;
  }

  description::UrdfInertial body() {
    description::UrdfInertial body;
    body.mass = std::max(0.0, number(2.0) + 1.0);  // some links have none
    body.origin_xyz = triple(0.1);
    body.origin_rpy = triple(3.0);
    body.ixx = 0.03;
    body.iyy = 0.02;
    body.izz = 0.01;
    body.ixy = body.ixz = body.iyz = number(0.005);
    return body;
  }

  /// Joints of all types in random order, bodies on moving and fixed ones, a tilted payload.
  KDL::Chain random_chain(int joints) {
    static constexpr const char* kTypes[] = {"revolute", "fixed", "prismatic", "continuous"};
    description::UrdfDescription urdf;
    for (int i = 0; i < joints; ++i) {
      description::UrdfJoint joint;
      joint.name = joint.child = std::to_string(i);
      joint.type = kTypes[std::uniform_int_distribution<>(0, 3)(random)];
      joint.origin_xyz = triple(0.4);
      joint.origin_rpy = triple(3.0);
      joint.axis = triple(1.0);
      urdf.inertials[joint.child] = body();
      urdf.joints.push_back(joint);
    }
    description::KinematicsConfig config;
    config.has_payload = true;
    config.payload = body();
    config.tool_xyz = triple(0.2);
    return build_kdl_chain(urdf, config);
  }

  std::mt19937 random{5};
};

KDL::JntArray array_of(const Joints& values) {
  KDL::JntArray array(static_cast<unsigned>(values.size()));
  std::copy(values.begin(), values.end(), array.data.data());
  return array;
}

void expect_equal(const Joints& torques, const KDL::JntArray& expected, const char* what,
                  const KDL::Chain& chain) {
  ASSERT_EQ(torques.size(), expected.rows());
  double scale = 1.0;
  for (unsigned i = 0; i < expected.rows(); ++i) {
    scale = std::max(scale, std::abs(expected(i)));
  }
  for (unsigned i = 0; i < expected.rows(); ++i) {
    EXPECT_NEAR(torques[i], expected(i), 1e-12 * scale) << what << i << '\n' << chain;
  }
}

TEST_F(Torques, EqualKdlOnRandomChains) {
  for (int trial = 0; trial < 300; ++trial) {
    const KDL::Chain chain = random_chain(trial % 32);  // beyond the joints that need no allocation
    const unsigned count = chain.getNrOfJoints();
    const Joints q = values(count, 4.0);
    const Joints qd = values(count, 5.0);
    const Joints qdd = values(count, 20.0);
    const TorqueSolver solver(chain);
    KDL::ChainDynParam parts(chain, kGravity);
    KDL::JntArray expected(count);
    parts.JntToGravity(array_of(q), expected);
    expect_equal(solver.gravity_compensation_kdl(q), expected, "gravity ", chain);
    parts.JntToCoriolis(array_of(q), array_of(qd), expected);
    expect_equal(solver.coriolis_compensation_kdl(q, qd), expected, "Coriolis ", chain);
    KDL::ChainIdSolver_RNE whole(chain, kGravity);
    const KDL::Wrenches no_forces(chain.getNrOfSegments(), KDL::Wrench::Zero());
    whole.CartToJnt(array_of(q), array_of(qd), array_of(qdd), no_forces, expected);
    expect_equal(solver.dynamic_compensation_kdl(q, qd, qdd), expected, "all ", chain);
  }
}

}  // namespace
}  // namespace kelvara::kinematics
