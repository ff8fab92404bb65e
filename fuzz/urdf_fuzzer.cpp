// A robot description of any bytes: it makes a model whose two halves agree, or one clear error.

#include <cmath>

#include <Eigen/Core>
#include <kdl/frames.hpp>

#include "kelvara/kinematics/kinematics.hpp"
#include "support/temporary_directory.hpp"

#include "description/urdf.hpp"
#include "fuzz/input.hpp"

namespace {

using kelvara::description::UrdfDescription;

constexpr const char* kUrdf = "config/BrimloV2.SLDASM.urdf";
constexpr std::size_t kMaxSolvedJoints = 8;  // longer chains take the solver too long
constexpr double kMaxLength = 100.0;         // m; rounding hides the differences of longer arms

/// A directory whose robot description is the fuzzer's.
const TemporaryWorkingDirectory& directory() {
  static const TemporaryWorkingDirectory instance;
  return instance;
}

bool turns_only(const UrdfDescription& urdf) {
  return std::all_of(urdf.joints.begin(), urdf.joints.end(), [](const auto& joint) {
    return (joint.type == "revolute" || joint.type == "continuous") &&
           std::all_of(joint.origin_xyz.begin(), joint.origin_xyz.end(),
                       [](double length) { return std::abs(length) < kMaxLength; }) &&
           std::all_of(joint.origin_rpy.begin(), joint.origin_rpy.end(),
                       [](double angle) { return std::abs(angle) < kMaxLength; });
  });
}

void check_solution(RobotKinematics& model, const std::vector<double>& pose,
                    const std::vector<double>& seed) {
  std::vector<double> euler(3);
  KDL::Rotation::Quaternion(pose[3], pose[4], pose[5], pose[6])
      .GetRPY(euler[0], euler[1], euler[2]);
  std::vector<double> solution;
  if (!model.solve_ik_kdl({pose[0], pose[1], pose[2]}, euler, seed, solution)) {
    return;
  }
  for (std::size_t j = 0; j < solution.size(); ++j) {
    require(std::isfinite(solution[j]), "a solution is finite");
    if (model.joint_has_limits()[j] && model.joint_lower()[j] <= model.joint_upper()[j]) {
      require(solution[j] >= model.joint_lower()[j] && solution[j] <= model.joint_upper()[j],
              "a solution keeps the joint limits");
    }
  }
}

void check_model(RobotKinematics& model, bool comparable) {
  const std::size_t joints = model.joints().size();
  for (const Eigen::Vector3d& axis : model.joint_axes()) {
    require(std::abs(axis.norm() - 1.0) < 1e-6, "axes have unit length");
  }
  std::vector<double> q(static_cast<std::size_t>(model.num_joints()));
  for (std::size_t j = 0; j < q.size(); ++j) {
    q[j] = 0.3 * static_cast<double>(j % 7) - 0.5;
  }
  const std::vector<double> pose = model.forwardKinematics_kdl(q);
  model.dynamic_compensation_kdl(q, q, q);
  if (comparable) {
    const Eigen::Matrix4d T =
        model.forward_kinematics(Eigen::Map<const Eigen::VectorXd>(q.data(), model.num_joints()));
    const Eigen::Vector3d difference = T.topRightCorner<3, 1>() - Eigen::Vector3d(pose.data());
    require(difference.norm() < 1e-6 * (1.0 + kMaxLength * static_cast<double>(joints)),
            "both models reach the same point");
  }
  if (joints <= kMaxSolvedJoints && joints == q.size()) {
    check_solution(model, pose, std::vector<double>(q.size(), 0.1));
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  silence_reports();
  directory().write("config/robot_kinematics.yaml",
                    "kinematics: {tool: {xyz: [0.1, 0, 0.2], rpy: [0, 0.5, 0]},"
                    " payload: {mass: 1, com: [0.1, 0, 0]}}");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  directory().write(kUrdf, {reinterpret_cast<const char*>(data), size});
  try {
    const bool comparable = turns_only(kelvara::description::load_urdf(kUrdf));
    RobotKinematics model;
    check_model(model, comparable);
  } catch (const std::runtime_error&) {
  }
  return 0;
}
