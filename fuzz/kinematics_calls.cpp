#include <cmath>
#include <vector>

#include <Eigen/Core>

#include "hardware/jaw_geometry.hpp"

#include "description/finite.hpp"
#include "fuzz/calls.hpp"
#include "motion/pose_stream.hpp"

namespace fuzz {
namespace {

using kelvara::JointArray;
using kelvara::kJointCount;
using kelvara::description::all_finite;
using kelvara::motion::PoseStream;

constexpr double kPi = 3.14159265358979323846;

}  // namespace

void solve_by_jacobian(Input& input) {
  const auto position = input.numbers<3>();
  const auto euler = input.numbers<3>();
  const auto q = input.numbers<kJointCount>();
  const Eigen::VectorXd seed = Eigen::Map<const Eigen::VectorXd>(q.data(), kJointCount);
  const double threshold = input.number();
  const int iterations = static_cast<int>(input.choose(30));
  const auto solution = model().inverse_kinematics_jacobian(
      Eigen::Vector3d(position.data()), Eigen::Vector3d(euler.data()), seed, threshold, threshold,
      iterations, input.number());
  require(!solution.success || solution.q.allFinite(), "a solution is finite");
  if (solution.q.size() == seed.size() && iterations > 0 && solution.q != seed && seed == seed) {
    require(solution.q.cwiseAbs().maxCoeff() <= kPi, "angles lie within half a turn");
  }
  if (solution.success && threshold < 1.0) {
    const Eigen::Vector3d reached = model().forward_kinematics(solution.q).topRightCorner<3, 1>();
    require((reached - Eigen::Vector3d(position.data())).norm() < threshold + 1e-9,
            "a solution reaches the target");
  }
}

void solve_by_kdl(Input& input) {
  const auto position = input.numbers<3>();
  const auto euler = input.numbers<3>();
  const auto seed = input.numbers<kJointCount>();
  std::vector<double> solution;
  if (!model().solve_ik_kdl({position.begin(), position.end()}, {euler.begin(), euler.end()},
                            {seed.begin(), seed.end()}, solution)) {
    require(solution.empty(), "a failure leaves the result alone");
    return;
  }
  for (std::size_t j = 0; j < kJointCount; ++j) {
    require(solution[j] >= model().joint_lower()[j] && solution[j] <= model().joint_upper()[j],
            "a solution keeps the joint limits");
  }
  const auto dq = input.everyday_numbers<kJointCount>();
  require(all_finite(model().dynamic_compensation_kdl(solution, {dq.begin(), dq.end()}, solution)),
          "torques are finite");
}

/// Finite solutions at any times, as the solver returns them.
void stream_poses(Input& input) {
  PoseStream stream;
  while (!input.empty()) {
    const JointArray q = input.everyday_numbers<kJointCount>();
    for (const double velocity : stream.step(q, take_time(input))) {
      require(std::abs(velocity) <= 20.9, "a streamed velocity keeps its limit");
    }
  }
}

void turn_jaws(Input& input) {
  using namespace kelvara::can::socket;
  const double number = input.number();
  require(!is_jaw_distance_in_range(number) || std::isfinite(jaw_angle_from_distance(number)),
          "a jaw angle is finite");
  require(!std::isfinite(number) || std::isfinite(jaw_distance_from_angle(number)),
          "a jaw distance is finite");
}

}  // namespace fuzz
