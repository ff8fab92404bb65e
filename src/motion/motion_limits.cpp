#include <stdexcept>

#include <yaml-cpp/yaml.h>

#include "kelvara/motion/planner.hpp"

#include "description/controller_settings.hpp"
#include "description/yaml_file.hpp"

namespace kelvara {
namespace {

/// An optional limit of the tool.
struct ToolLimit {
  const char* key;
  double MotionLimits::*value;
};

constexpr ToolLimit kToolLimits[] = {
    {"tool_speed", &MotionLimits::tool_speed},
    {"tool_acceleration", &MotionLimits::tool_acceleration},
    {"tool_jerk", &MotionLimits::tool_jerk},
    {"tool_angular_speed", &MotionLimits::tool_angular_speed},
    {"tool_angular_acceleration", &MotionLimits::tool_angular_acceleration},
    {"tool_angular_jerk", &MotionLimits::tool_angular_jerk},
};

[[noreturn]] void refuse(const std::string& path, const std::string& text) {
  throw std::runtime_error("Invalid motion config at " + path + ": " + text);
}

/// Reads the optional keys of `motion`; what is absent or null keeps its default.
void read_tool_limits(const std::string& path, MotionLimits& limits) {
  const YAML::Node section = description::child(description::load_yaml(path, "motion"), "motion");
  if (!section.IsDefined() || section.IsNull()) {
    return;
  }
  if (!section.IsMap()) {
    refuse(path, "'motion' must be a map");
  }
  for (const ToolLimit& limit : kToolLimits) {
    const YAML::Node node = description::child(section, limit.key);
    if (!node.IsDefined() || node.IsNull()) {
      continue;
    }
    const std::optional<double> number = description::as_number(node);
    if (!number || !(*number > 0.0)) {
      refuse(path, std::string(limit.key) + " must be a positive number");
    }
    limits.*limit.value = *number;
  }
}

JointArray times(JointArray values, double factor) {
  for (double& value : values) {
    value *= factor;
  }
  return values;
}

}  // namespace

MotionLimits MotionLimits::from_settings(const std::string& settings_path) {
  const description::ControllerSettings settings =
      description::load_controller_settings(settings_path);
  MotionLimits limits;
  limits.velocity = settings.joint_trajectory.max_vel_limits;
  limits.acceleration = settings.joint_trajectory.max_acc_limits;
  limits.jerk = settings.joint_trajectory.max_jerk_limits;
  limits.torque = settings.mit.gravity_tau_limits;
  limits.rotor_inertia = settings.joint_dynamics.rotor_inertia;
  limits.viscous_friction = settings.joint_dynamics.viscous_friction;
  limits.coulomb_friction = settings.joint_dynamics.coulomb_friction;
  read_tool_limits(settings_path, limits);
  return limits;
}

MotionLimits MotionLimits::scaled(double fraction) const {
  if (!(fraction > 0.0 && fraction <= 1.0)) {
    throw std::invalid_argument("MotionLimits: the fraction must be in (0, 1]");
  }
  const double square = fraction * fraction;
  const double cube = fraction * square;
  MotionLimits limits = *this;
  limits.velocity = times(velocity, fraction);
  limits.acceleration = times(acceleration, square);
  limits.jerk = times(jerk, cube);
  limits.tool_speed *= fraction;
  limits.tool_acceleration *= square;
  limits.tool_jerk *= cube;
  limits.tool_angular_speed *= fraction;
  limits.tool_angular_acceleration *= square;
  limits.tool_angular_jerk *= cube;
  return limits;
}

}  // namespace kelvara
