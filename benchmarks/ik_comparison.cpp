// Compares the inverse kinematics on the same targets: the share that each solves, and its mean
// time. Prints a table; docs/inverse_kinematics.md holds one. Usage: ik_comparison [TARGETS]

#include <time.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <random>
#include <vector>

#include <Eigen/Geometry>

#include "kelvara/kinematics/kinematics.hpp"

namespace {

// As the controller's calls ask for them.
constexpr double kTolerance = 1e-4;  // m and rad
constexpr int kIterations = 100;
constexpr double kDamping = 0.005;
// A solution counts if its pose is this close, whatever the solver returns.
constexpr double kSolvedPosition = 1e-3;  // m
constexpr double kSolvedRotation = 1e-3;  // rad

struct Trial {
  Eigen::VectorXd seed, truth;
};

struct Score {
  int solved = 0;
  double total_us = 0.0;

  void print(std::size_t trials) const {
    const auto count = static_cast<double>(trials);
    std::printf(" | %6.1f %% | %7.1f µs", 100.0 * solved / count, total_us / count);
  }
};

class Comparison {
 public:
  /// Runs the solvers over the trials and prints one line.
  void run(const char* name, const std::vector<Trial>& trials) {
    Score jacobian, kdl, all;
    for (const Trial& trial : trials) {
      const Eigen::Matrix4d T = model_.forward_kinematics(trial.truth);
      const Eigen::Vector3d position = T.topRightCorner<3, 1>();
      const Eigen::Vector3d euler = model_.rotation_matrix_to_euler(T.topLeftCorner<3, 3>());
      double start = thread_time_us();
      const auto result = model_.inverse_kinematics_jacobian(
          position, euler, trial.seed, kTolerance, kTolerance, kIterations, kDamping);
      jacobian.total_us += thread_time_us() - start;
      jacobian.solved += result.success && reaches(result.q, T) ? 1 : 0;

      const std::vector<double> target_pos(position.begin(), position.end());
      const std::vector<double> target_euler(euler.begin(), euler.end());
      const std::vector<double> seed(trial.seed.begin(), trial.seed.end());
      std::vector<double> q;
      start = thread_time_us();
      const bool found = model_.solve_ik_kdl(target_pos, target_euler, seed, q);
      kdl.total_us += thread_time_us() - start;
      kdl.solved += found && reaches(Eigen::Map<Eigen::VectorXd>(q.data(), 6), T) ? 1 : 0;

      std::array<double, 6> truth{}, near{};
      std::copy(trial.truth.begin(), trial.truth.end(), truth.begin());
      std::copy(seed.begin(), seed.end(), near.begin());
      const kelvara::Pose pose = model_.pose(truth);
      start = thread_time_us();
      std::array<double, 6> nearest = model_.solve_pose(pose, near);
      all.total_us += thread_time_us() - start;
      all.solved += reaches(Eigen::Map<Eigen::VectorXd>(nearest.data(), 6), T) ? 1 : 0;
    }
    std::printf("| %s", name);
    jacobian.print(trials.size());
    kdl.print(trials.size());
    all.print(trials.size());
    std::puts(" |");
  }

  /// Angles within a share of the joint limits.
  Eigen::VectorXd random_pose(double share) {
    Eigen::VectorXd q(6);
    for (Eigen::Index j = 0; j < 6; ++j) {
      const auto index = static_cast<std::size_t>(j);
      q[j] = share * uniform(model_.joint_lower()[index], model_.joint_upper()[index]);
    }
    return q;
  }

  /// The pose moved by up to `reach` in each joint, within the limits.
  Eigen::VectorXd near(const Eigen::VectorXd& q, double reach) {
    Eigen::VectorXd moved(6);
    for (Eigen::Index j = 0; j < 6; ++j) {
      const auto index = static_cast<std::size_t>(j);
      moved[j] = std::clamp(q[j] + uniform(-reach, reach), model_.joint_lower()[index],
                            model_.joint_upper()[index]);
    }
    return moved;
  }

 private:
  /// Processor time of this thread: other programs do not count.
  static double thread_time_us() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return 1e6 * static_cast<double>(time.tv_sec) + 1e-3 * static_cast<double>(time.tv_nsec);
  }

  double uniform(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random_);
  }

  bool reaches(const Eigen::VectorXd& q, const Eigen::Matrix4d& T) const {
    const Eigen::Matrix4d reached = model_.forward_kinematics(q);
    const Eigen::Matrix3d turn =
        reached.topLeftCorner<3, 3>() * T.topLeftCorner<3, 3>().transpose();
    return (reached - T).topRightCorner<3, 1>().norm() < kSolvedPosition &&
           std::abs(Eigen::AngleAxisd(turn).angle()) < kSolvedRotation;
  }

  RobotKinematics model_;
  std::mt19937 random_{2024};
};

}  // namespace

int main(int argc, char** argv) {
  const int count = argc == 2 ? std::atoi(argv[1]) : 2000;
  if (argc > 2 || count <= 0) {
    std::cerr << "usage: ik_comparison [TARGETS]\n";
    return 2;
  }
  constexpr double kNear = 0.3;           // rad
  std::cerr.setstate(std::ios::failbit);  // the local solvers report what they cannot solve
  Comparison comparison;
  const auto trials = [&](auto draw_seed, auto draw_truth) {
    std::vector<Trial> made;
    for (int k = 0; k < count; ++k) {
      const Eigen::VectorXd& seed = draw_seed();
      made.push_back({seed, draw_truth(seed)});
    }
    return made;
  };
  const auto nearby = [&](const Eigen::VectorXd& seed) { return comparison.near(seed, kNear); };
  const Eigen::VectorXd work = (Eigen::VectorXd(6) << 0.0, 0.9, -1.0, 0.6, 0.5, 0.0).finished();
  const Eigen::VectorXd motion = (Eigen::VectorXd(6) << 0.6, 0.5, -0.4, 0.5, -0.6, 0.8).finished();
  std::puts(
      "| seeds and targets | Jacobian: solved | mean time | KDL: solved | mean time "
      "| solve_pose: solved | mean time |");
  std::puts("|---|---|---|---|---|---|---|");
  comparison.run("within 0.3 rad of home", trials([] { return Eigen::VectorXd::Zero(6); }, nearby));
  comparison.run("within 0.3 rad of a working pose",
                 trials([&]() -> const Eigen::VectorXd& { return work; }, nearby));
  comparison.run("within 0.3 rad of first_motion's pose",
                 trials([&]() -> const Eigen::VectorXd& { return motion; }, nearby));
  comparison.run("within 0.3 rad of random poses",
                 trials([&] { return comparison.random_pose(0.5); }, nearby));
  comparison.run("random far seeds",
                 trials([&] { return comparison.random_pose(1.0); },
                        [&](const Eigen::VectorXd&) { return comparison.random_pose(1.0); }));
  return 0;
}
