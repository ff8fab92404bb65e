// The model's inverse dynamics, beside KDL's two ways to the same torques. Compare ratios within
// one run: absolute times depend on the machine.

#include <algorithm>
#include <array>
#include <cmath>

#include <benchmark/benchmark.h>
#include <kdl/chaindynparam.hpp>
#include <kdl/chainidsolver_recursive_newton_euler.hpp>

#include "kelvara/kinematics/kinematics.hpp"

namespace {

using Joints = std::array<double, 6>;

constexpr Joints kPose{0.3, 0.5, -0.4, 0.2, -0.3, 0.6};
constexpr Joints kRates{0.5, -0.4, 0.3, 0.6, -0.2, 0.1};
constexpr Joints kAccelerations{1.0, 2.0, -1.0, 0.5, 3.0, -2.0};
const KDL::Vector kGravity(0.0, 0.0, -9.81);

const RobotKinematics& model() {
  static const RobotKinematics robot;
  return robot;
}

Joints model_torques(const Joints& q) {
  Joints tau{};
  model().inverse_dynamics(q.data(), kRates.data(), kAccelerations.data(), tau.data());
  return tau;
}

KDL::JntArray array_of(const Joints& values) {
  KDL::JntArray array(6);
  std::copy(values.begin(), values.end(), array.data.data());
  return array;
}

void check(benchmark::State& state, const KDL::JntArray& torques) {
  const Joints expected = model_torques(kPose);
  for (unsigned i = 0; i < 6; ++i) {
    if (!(std::abs(torques(i) - expected[i]) < 1e-12)) {
      state.SkipWithError("KDL's torques differ from the model's");
    }
  }
}

void InverseDynamics(benchmark::State& state) {
  Joints q = kPose;
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(q);
    benchmark::DoNotOptimize(model_torques(q));
  }
}
BENCHMARK(InverseDynamics);

/// One recursion over all segments, the fixed ones included.
void KdlRecursion(benchmark::State& state) {
  const KDL::Chain chain = model().chain();
  KDL::ChainIdSolver_RNE solver(chain, kGravity);
  const KDL::Wrenches no_forces(chain.getNrOfSegments(), KDL::Wrench::Zero());
  KDL::JntArray q = array_of(kPose);
  const KDL::JntArray rates = array_of(kRates);
  const KDL::JntArray accelerations = array_of(kAccelerations);
  KDL::JntArray torques(6);
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(q);
    solver.CartToJnt(q, rates, accelerations, no_forces, torques);
    benchmark::DoNotOptimize(torques);
  }
  check(state, torques);
}
BENCHMARK(KdlRecursion);

/// The sum M(q)·qdd + C(q, qd) + G(q).
void KdlMassCoriolisAndGravity(benchmark::State& state) {
  const KDL::Chain chain = model().chain();
  KDL::ChainDynParam solver(chain, kGravity);
  KDL::JntArray q = array_of(kPose);
  const KDL::JntArray rates = array_of(kRates);
  const KDL::JntArray accelerations = array_of(kAccelerations);
  KDL::JntSpaceInertiaMatrix mass(6);
  KDL::JntArray coriolis(6), gravity(6), torques(6);
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(q);
    solver.JntToMass(q, mass);
    solver.JntToCoriolis(q, rates, coriolis);
    solver.JntToGravity(q, gravity);
    torques.data.noalias() = mass.data * accelerations.data;
    torques.data += coriolis.data + gravity.data;
    benchmark::DoNotOptimize(torques);
  }
  check(state, torques);
}
BENCHMARK(KdlMassCoriolisAndGravity);

}  // namespace

BENCHMARK_MAIN();
