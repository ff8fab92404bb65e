// Inverse kinematics: the cost of one Jacobian, beside forward kinematics, and of an iteration.

#include <iostream>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "kelvara/kinematics/kinematics.hpp"

namespace {

RobotKinematics& model() {
  static RobotKinematics kinematics;
  return kinematics;
}

const Eigen::VectorXd& pose() {
  static const Eigen::VectorXd q =
      (Eigen::VectorXd(6) << 0.6, 0.5, -0.4, 0.5, -0.6, 0.8).finished();
  return q;
}

void ForwardKinematics(benchmark::State& state) {
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(model().forward_kinematics(pose()));
  }
}
BENCHMARK(ForwardKinematics);

/// The reference for one iteration's Jacobian: a whole forward kinematics for each joint.
void JacobianByWholeForwardKinematics(benchmark::State& state) {
  while (state.KeepRunning()) {
    const Eigen::Matrix4d T = model().forward_kinematics(pose());
    const Eigen::Vector4d orientation =
        model().rotation_matrix_to_quaternion(T.topLeftCorner<3, 3>());
    Eigen::Matrix<double, 6, 6> J;
    for (Eigen::Index j = 0; j < 6; ++j) {
      Eigen::VectorXd moved = pose();
      moved[j] += 1e-6;
      const Eigen::Matrix4d T_moved = model().forward_kinematics(moved);
      J.col(j) << (T_moved - T).topRightCorner<3, 1>() / 1e-6,
          model().quaternion_error(
              model().rotation_matrix_to_quaternion(T_moved.topLeftCorner<3, 3>()), orientation) /
              1e-6;
    }
    benchmark::DoNotOptimize(J);
  }
}
BENCHMARK(JacobianByWholeForwardKinematics);

/// Iterations that never converge: forward kinematics, Jacobian, factorisation and step, once each.
void JacobianIteration(benchmark::State& state) {
  constexpr int kIterations = 1000;
  std::cerr.setstate(std::ios::failbit);  // every run reports that it did not converge
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(model().inverse_kinematics_jacobian(
        {0.5, 0.1, 0.3}, {0.0, 0.1, 0.2}, pose(), 0.0, 0.0, kIterations, 0.005));
  }
  std::cerr.clear();
  state.counters["per_iteration"] = benchmark::Counter(
      kIterations, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(JacobianIteration);

}  // namespace

BENCHMARK_MAIN();
