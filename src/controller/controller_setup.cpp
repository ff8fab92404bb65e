#include "controller/controller_setup.hpp"

#include <stdexcept>

#include "controller/diagnostics.hpp"
#include "controller/startup_failure.hpp"
#include "kelvara/kinematics/kinematics.hpp"

#include "description/arm_facts.hpp"
#include "description/finite.hpp"

namespace kelvara::controller {
namespace {

description::ControllerSettings load_settings(const std::string& path) {
  try {
    return description::load_controller_settings(path);
  } catch (const description::UnreadableFile& error) {
    fail_startup(error.what());
  }
}

/// An infinite mass or length would turn every feed-forward torque into NaN.
void require_usable_model(const RobotKinematics& kinematics) {
  if (kinematics.joints().size() != kJointCount ||
      kinematics.num_joints() != static_cast<int>(kJointCount)) {
    throw std::runtime_error("ArmController needs a chain of exactly 6 moving joints");
  }
  const JointArray rest{};
  JointArray torque{};
  kinematics.inverse_dynamics(rest.data(), rest.data(), rest.data(), torque.data());
  if (!description::all_finite(torque)) {
    throw std::runtime_error("ArmController needs finite masses, inertias and lengths");
  }
}

description::JointLimits joint_limits(const RobotKinematics& kinematics) {
  description::JointLimits limits;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    limits.urdf_lower[i] = kinematics.joint_lower()[i];
    limits.urdf_upper[i] = kinematics.joint_upper()[i];
    limits.urdf_has_limit[i] = kinematics.joint_has_limits()[i];
  }
  return limits;
}

}  // namespace

ControllerSetup load_setup(bool with_gripper, damiao_motor::ControlMode mode,
                           const RobotKinematics& kinematics) {
  if (mode != damiao_motor::MIT_MODE && mode != damiao_motor::POS_VEL_MODE) {
    throw std::invalid_argument("ArmController only supports MIT_MODE or POS_VEL_MODE.");
  }
  const description::ControllerSettings settings =
      load_settings(kinematics.description_files().settings_path);
  const description::MotorSigns motor_signs(settings.motor_signs);
  require_usable_model(kinematics);
  for (const std::string& report : settings.reports) {
    error_line() << "[ArmController] " << report;
  }
  return {.has_gripper = with_gripper,
          .control_mode = mode,
          .pos_vel = settings.pos_vel,
          .mit = settings.mit,
          .joint_trajectory = settings.joint_trajectory,
          .motor_signs = motor_signs,
          .limits = {joint_limits(kinematics),
                     description::column(&description::JointFacts::velocity_limit),
                     settings.pos_vel.max_acc_limits}};
}

}  // namespace kelvara::controller
