#include "controller/controller_setup.hpp"

#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "controller/startup_failure.hpp"
#include "kelvara/kinematics/kinematics.hpp"

#include "description/arm_facts.hpp"
#include "description/classic_stream.hpp"
#include "description/finite.hpp"
#include "diagnostics/line.hpp"

namespace kelvara::controller {
namespace {

description::ControllerSettings load_settings(const SetupRequest& request,
                                              const std::string& path) {
  try {
    return description::load_controller_settings(path);
  } catch (const description::UnreadableFile& error) {
    if (!request.exit_on_unreadable_file) {
      throw;
    }
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

/// "PATH: joint 2 ('shoulder') ", the start of a message.
std::string joint_in_urdf(const RobotKinematics& kinematics, std::size_t joint) {
  return kinematics.description_files().urdf_path + ": joint " + std::to_string(joint + 1) + " ('" +
         kinematics.joints()[joint].name + "') ";
}

[[noreturn]] void refuse_joint(const RobotKinematics& kinematics, std::size_t joint,
                               const std::string& reason) {
  throw std::runtime_error("Invalid URDF at " + joint_in_urdf(kinematics, joint) + reason);
}

void require_turning_joint(const RobotKinematics& kinematics, std::size_t joint) {
  const std::string& type = kinematics.joints()[joint].type;
  if (type != "revolute" && type != "continuous") {
    refuse_joint(kinematics, joint, "has type='" + type + "'; its motor can only turn it");
  }
}

/// Clamping to swapped limits would move the joint from any start to one of them.
void require_ordered_limits(const RobotKinematics& kinematics, std::size_t joint) {
  const double lower = kinematics.joint_lower()[joint];
  const double upper = kinematics.joint_upper()[joint];
  if (kinematics.joint_has_limits()[joint] && lower > upper) {
    description::ClassicStream reason;
    reason << "has limit lower=" << lower << " above upper=" << upper;
    refuse_joint(kinematics, joint, reason.str());
  }
}

bool lacks_a_limit(const RobotKinematics& kinematics, std::size_t joint) {
  return kinematics.joints()[joint].type != "continuous" &&
         !(kinematics.joint_has_limits()[joint] && std::isfinite(kinematics.joint_lower()[joint]) &&
           std::isfinite(kinematics.joint_upper()[joint]));
}

/// Adds a line for each joint that lacks a limit, or refuses it.
void check_joints(const RobotKinematics& kinematics, const SetupRequest& request,
                  std::vector<std::string>& reports) {
  constexpr const char* kLacksLimit = "lacks a finite lower or upper limit";
  for (std::size_t i = 0; i < kJointCount; ++i) {
    require_turning_joint(kinematics, i);
    require_ordered_limits(kinematics, i);
    if (!lacks_a_limit(kinematics, i)) {
      continue;
    }
    if (request.require_limits) {
      refuse_joint(kinematics, i, kLacksLimit + std::string(" and is not continuous"));
    }
    reports.push_back(joint_in_urdf(kinematics, i) + kLacksLimit + "; its range is unlimited");
  }
}

/// The model would carry a gripper that is not there: a floating arm would rise.
void check_payload(const RobotKinematics& kinematics, const SetupRequest& request,
                   std::vector<std::string>& reports) {
  if (!request.with_gripper && kinematics.payload_mass() > 0.0) {
    description::ClassicStream line;
    line << "no gripper is fitted, but " << kinematics.description_files().settings_path
         << " adds a payload of " << kinematics.payload_mass()
         << " kg: a floating arm rises unless that mass is mounted; set kinematics.payload.mass to "
            "what is mounted";
    reports.push_back(line.str());
  }
}

JointArray velocity_limits(double scale) {
  JointArray limits = description::column(&description::JointFacts::velocity_limit);
  for (double& limit : limits) {
    limit *= scale > 0.0 ? scale : 1.0;
  }
  return limits;
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

ControllerSetup load_setup(const SetupRequest& request, const RobotKinematics& kinematics) {
  if (request.mode != damiao_motor::MIT_MODE && request.mode != damiao_motor::POS_VEL_MODE) {
    throw std::invalid_argument("ArmController only supports MIT_MODE or POS_VEL_MODE.");
  }
  description::ControllerSettings settings =
      load_settings(request, kinematics.description_files().settings_path);
  const description::MotorSigns motor_signs(settings.motor_signs);
  require_usable_model(kinematics);
  check_joints(kinematics, request, settings.reports);
  check_payload(kinematics, request, settings.reports);
  for (const std::string& report : settings.reports) {
    diagnostics::error_line() << "[ArmController] " << report;
  }
  return {.has_gripper = request.with_gripper,
          .control_mode = request.mode,
          .pos_vel = settings.pos_vel,
          .mit = settings.mit,
          .joint_trajectory = settings.joint_trajectory,
          .motor_signs = motor_signs,
          .joint_dynamics = settings.joint_dynamics,
          .limits = {joint_limits(kinematics), velocity_limits(request.velocity_scale),
                     settings.pos_vel.max_acc_limits, request.velocity_scale > 0.0},
          .motion = MotionLimits::from_settings(kinematics.description_files().settings_path),
          .started_with_options = request.started_with_options,
          .require_all_motors = request.require_all_motors,
          .on_fault = request.on_fault};
}

}  // namespace kelvara::controller
