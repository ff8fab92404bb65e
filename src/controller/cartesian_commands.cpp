#include <algorithm>
#include <stdexcept>

#include "controller/arm_controller_impl.hpp"
#include "controller/pose_solvers.hpp"

#include "description/finite.hpp"
#include "diagnostics/line.hpp"

using kelvara::JointArray;
using kelvara::kJointCount;

namespace {

bool is_finite_triple(const std::vector<double>& values) {
  return values.size() == 3 && kelvara::description::all_finite(values);
}

}  // namespace

void ArmController::set_end_effector_pose(const std::vector<double>& target_pos,
                                          const std::vector<double>& target_euler, double tf) {
  if (target_pos.size() != 3) {
    throw std::invalid_argument("target_pos must have exactly 3 elements.");
  }
  if (target_euler.size() != 3) {
    throw std::invalid_argument("target_euler must have exactly 3 elements.");
  }
  const auto solution =
      impl().poses->solve_by_jacobian(target_pos, target_euler, joint_positions());
  if (!solution) {
    kelvara::diagnostics::output_line() << "雅可比逆解失败。";
    return;
  }
  set_joint(*solution, tf);
}

std::optional<std::vector<double>> ArmController::solve_ik(const std::vector<double>& target_pos,
                                                           const std::vector<double>& target_euler,
                                                           const std::vector<double>& q_seed) {
  if (target_pos.size() != 3 || target_euler.size() != 3) {
    throw std::invalid_argument("target_pos and target_euler must both have exactly 3 elements.");
  }
  if (!q_seed.empty()) {
    if (q_seed.size() != kJointCount) {
      throw std::invalid_argument("q_seed must have exactly 6 elements when provided.");
    }
    return impl().poses->solve_ik(target_pos, target_euler, q_seed);
  }
  const JointArray measured = joint_positions();
  return impl().poses->solve_ik(target_pos, target_euler, {measured.begin(), measured.end()});
}

void ArmController::set_end_effector_pose_raw(const std::vector<double>& target_pos,
                                              const std::vector<double>& target_euler) {
  if (!is_finite_triple(target_pos) || !is_finite_triple(target_euler)) {
    return;
  }
  const auto solution = solve_ik(target_pos, target_euler, {});
  if (!solution) {
    return;
  }
  JointArray q{};
  std::copy(solution->begin(), solution->end(), q.begin());
  const JointArray dq = impl().poses->stream(q);
  impl().publish_streamed_command(*solution, {dq.begin(), dq.end()});
}

std::array<double, 6> ArmController::get_end_effector_pose() {
  return impl().poses->end_effector_pose(joint_positions());
}
