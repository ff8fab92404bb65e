// Inverse kinematics of random poses over the whole joint range: all solutions in closed form, by
// Newton steps on a disturbed arm and by search, with KDL's Levenberg-Marquardt as the peer. A time
// is one pose's, the mean over all poses.

#include <array>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>
#include <kdl/chainiksolverpos_lma.hpp>
#include <kdl/frames.hpp>
#include <kdl/jntarray.hpp>

#include "kelvara/kinematics/kinematics.hpp"
#include "kinematics/inverse_kinematics.hpp"

#include "description/kinematics_settings.hpp"
#include "description/urdf.hpp"

namespace {

using kelvara::JointArray;
using kelvara::kinematics::Frame;
using kelvara::kinematics::InverseKinematics;
using kelvara::kinematics::SixJointChain;

constexpr std::size_t kPoses = 4096;

const RobotKinematics& model() {
  static const RobotKinematics kinematics;
  return kinematics;
}

kelvara::description::UrdfDescription description() {
  auto urdf = kelvara::description::load_urdf(model().description_files().urdf_path);
  std::erase_if(urdf.joints, [](const auto& joint) { return joint.type == "fixed"; });
  return urdf;
}

InverseKinematics solver_of(const kelvara::description::UrdfDescription& urdf) {
  return InverseKinematics(*SixJointChain::from(
      urdf,
      kelvara::description::load_kinematics_config(model().description_files().settings_path)));
}

struct Poses {
  explicit Poses(const SixJointChain& chain) {
    std::mt19937 random(7);
    for (std::size_t k = 0; k < kPoses; ++k) {
      JointArray q;
      for (std::size_t j = 0; j < q.size(); ++j) {
        const auto& range = chain.ranges()[j];
        q[j] = std::uniform_real_distribution<double>(range.lower, range.upper)(random);
      }
      frames.push_back(chain.tool_frame(q));
      joints.push_back(q);
    }
  }

  std::vector<Frame> frames;
  std::vector<JointArray> joints;
};

void time_all_solutions(benchmark::State& state, const InverseKinematics& solver) {
  const Poses poses(solver.chain());
  std::size_t k = 0;
  double solutions = 0.0;
  double solved = 0.0;
  while (state.KeepRunning()) {
    const auto found = solver.solutions(poses.frames[k++ % kPoses]);
    solutions += found.count;
    solved += found.count > 0 ? 1.0 : 0.0;
  }
  state.counters["solutions"] = benchmark::Counter(solutions, benchmark::Counter::kAvgIterations);
  state.counters["solved"] = benchmark::Counter(solved, benchmark::Counter::kAvgIterations);
}

void AllSolutionsWithinTheLimits(benchmark::State& state) {
  time_all_solutions(state, kelvara::kinematics::inverse_kinematics(model()));
}
BENCHMARK(AllSolutionsWithinTheLimits);

/// Limits of nearly a turn: none of the eight is left out.
void AllEightSolutions(benchmark::State& state) {
  auto urdf = description();
  for (auto& joint : urdf.joints) {
    joint.lower = -3.14, joint.upper = 3.14;
  }
  time_all_solutions(state, solver_of(urdf));
}
BENCHMARK(AllEightSolutions);

/// Origins off by up to 1 mm and 1 mrad.
void AllSolutionsOfADisturbedArm(benchmark::State& state) {
  auto urdf = description();
  std::mt19937 random(1);
  std::uniform_real_distribution<double> error(-1e-3, 1e-3);
  for (auto& joint : urdf.joints) {
    for (std::size_t i = 0; i < 3; ++i) {
      joint.origin_xyz[i] += error(random);
      joint.origin_rpy[i] += error(random);
    }
  }
  time_all_solutions(state, solver_of(urdf));
}
BENCHMARK(AllSolutionsOfADisturbedArm);

/// Axis 4 across axes 2 and 3: no closed form.
void AllSolutionsBySearch(benchmark::State& state) {
  auto urdf = description();
  urdf.joints[3].axis = {1.0, 0.0, 0.0};
  time_all_solutions(state, solver_of(urdf));
}
BENCHMARK(AllSolutionsBySearch);

void SolvePoseFromAFarSeed(benchmark::State& state) {
  const Poses poses(kelvara::kinematics::six_joint_chain(model()));
  std::size_t k = 0;
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(
        model().solve_pose(model().pose(poses.joints[k % kPoses]), poses.joints[(k + 1) % kPoses]));
    ++k;
  }
}
BENCHMARK(SolvePoseFromAFarSeed);

/// One solution, as far as it finds one: KDL's solver with its own settings.
void KdlLevenbergMarquardtFromAFarSeed(benchmark::State& state) {
  const Poses poses(kelvara::kinematics::six_joint_chain(model()));
  KDL::ChainIkSolverPos_LMA solver(model().chain());
  KDL::JntArray seed(6), q(6);
  std::size_t k = 0;
  double solved = 0.0;
  while (state.KeepRunning()) {
    const Frame& target = poses.frames[k % kPoses];
    const auto& [x, y, z] = target.rotation;
    const KDL::Frame frame(KDL::Rotation(x.x, y.x, z.x, x.y, y.y, z.y, x.z, y.z, z.z),
                           {target.position.x, target.position.y, target.position.z});
    for (unsigned j = 0; j < 6; ++j) {
      seed(j) = poses.joints[(k + 1) % kPoses][j];
    }
    solved += solver.CartToJnt(seed, frame, q) == 0 ? 1.0 : 0.0;
    ++k;
  }
  state.counters["solved"] = benchmark::Counter(solved, benchmark::Counter::kAvgIterations);
}
BENCHMARK(KdlLevenbergMarquardtFromAFarSeed);

void PoseOfTheTool(benchmark::State& state) {
  const JointArray q{0.6, 0.5, -0.4, 0.5, -0.6, 0.8};
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(model().pose(q));
  }
}
BENCHMARK(PoseOfTheTool);

void JacobianOfTheTool(benchmark::State& state) {
  const JointArray q{0.6, 0.5, -0.4, 0.5, -0.6, 0.8};
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(model().jacobian(q));
  }
}
BENCHMARK(JacobianOfTheTool);

}  // namespace

BENCHMARK_MAIN();
