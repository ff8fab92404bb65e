#include "description/controller_settings.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <yaml-cpp/yaml.h>

#include "kelvara/damiao_motor/motor_type.hpp"

#include "description/classic_stream.hpp"

namespace kelvara::description {
namespace {

/// One part of the file, and what the messages call it.
struct Section {
  YAML::Node map;
  std::string path;
  std::string key;
  std::string subject;

  std::string invalid() const { return "Invalid " + subject + " config at " + path + ": "; }
};

Section require_map(const YAML::Node& root, const std::string& path, const char* key,
                    const char* subject) {
  Section section{child(root, key), path, key, subject};
  if (!section.map.IsDefined() || !section.map.IsMap()) {
    throw std::runtime_error(section.invalid() + "missing '" + key + "' map");
  }
  return section;
}

std::string invalid_array(const std::string& path, const std::string& field_name) {
  return "Invalid joint array config at " + path + ": field '" + field_name + "' ";
}

JointArray parse_joint_array(const YAML::Node& node, const std::string& path,
                             const std::string& field_name) {
  return read_array<kJointCount>(
      node, {invalid_array(path, field_name), [](const YAML::Node& entry) -> std::string {
               return YAML::TypedBadConversion<double>(entry.Mark()).what();
             }});
}

JointArray parse_joint_array(const Section& section, const char* key) {
  return parse_joint_array(child(section.map, key), section.path, section.key + "." + key);
}

/// @throws std::runtime_error with the first joint whose value is not accepted.
template <class Accepted>
void check_values(const Section& section, const char* key, const JointArray& values,
                  Accepted is_accepted, const char* rule) {
  const auto wrong = std::find_if_not(values.begin(), values.end(), is_accepted);
  if (wrong != values.end()) {
    ClassicStream message;
    message << invalid_array(section.path, section.key + "." + key) << rule << ": joint "
            << wrong - values.begin() + 1 << " has " << *wrong;
    throw std::runtime_error(message.str());
  }
}

/// A joint array of limits or gains. A negative or NaN limit would become a command; such a gain
/// would drive a joint away from its target or leave it limp.
JointArray parse_limits(const Section& section, const char* key) {
  const JointArray limits = parse_joint_array(section, key);
  check_values(
      section, key, limits, [](double limit) { return limit >= 0.0; },
      "must not hold negative values");
  return limits;
}

bool is_given(const YAML::Node& node) { return node.IsDefined() && !node.IsNull(); }

/// An optional number; when it is absent or null, `value` keeps its default.
void read_optional(const Section& section, const char* key, double& value,
                   const std::string& message) {
  const YAML::Node node = child(section.map, key);
  if (!is_given(node)) {
    return;
  }
  const std::optional<double> number = as_number(node);
  if (!number) {
    throw std::runtime_error(message);
  }
  value = *number;
}

PosVelModeConfig parse_pos_vel_mode(const Section& section) {
  return {parse_limits(section, "max_acc_limits"), parse_limits(section, "max_dec_limits"),
          parse_limits(section, "kp_apr_limits")};
}

MitModeConfig parse_mit_mode(const Section& section) {
  MitModeConfig config{parse_limits(section, "kp"), parse_limits(section, "kd"),
                       parse_limits(section, "gravity_tau_limits")};
  read_optional(section, "gravity_comp_scale", config.gravity_comp_scale,
                section.invalid() + "gravity_comp_scale must be a number");
  return config;
}

JointTrajectoryConfig parse_joint_trajectory(const Section& section) {
  JointTrajectoryConfig config{parse_joint_array(section, "max_vel_limits"),
                               parse_joint_array(section, "max_acc_limits"),
                               parse_joint_array(section, "max_jerk_limits")};
  const std::string message = section.invalid() + "default_speed_percent must be in (0, 1]";
  read_optional(section, "default_speed_percent", config.default_speed_percent, message);
  if (!(config.default_speed_percent > 0.0 && config.default_speed_percent <= 1.0)) {
    throw std::runtime_error(message);
  }
  return config;
}

/// Coefficients of an optional key: zero when it is absent or null.
JointArray parse_coefficients(const Section& section, const char* key) {
  if (!is_given(child(section.map, key))) {
    return {};
  }
  const JointArray values = parse_limits(section, key);
  check_values(
      section, key, values, [](double value) { return std::isfinite(value); },
      "must not hold infinite values");
  return values;
}

JointDynamicsConfig parse_joint_dynamics(const YAML::Node& root, const std::string& path) {
  constexpr const char* kKey = "joint_dynamics";
  if (!is_given(child(root, kKey))) {
    return {};
  }
  const Section section = require_map(root, path, kKey, "joint dynamics");
  return {parse_coefficients(section, "rotor_inertia"),
          parse_coefficients(section, "viscous_friction"),
          parse_coefficients(section, "coulomb_friction")};
}

/// Adds a line for each joint whose gain a frame cannot carry.
void report_gains(const char* key, const JointArray& gains, double max,
                  std::vector<std::string>& reports) {
  for (std::size_t i = 0; i < gains.size(); ++i) {
    if (gains[i] > max) {
      ClassicStream line;
      line << "mit_mode." << key << " of joint " << i + 1 << " is " << gains[i]
           << "; a frame carries at most " << max << ", which is sent";
      reports.push_back(line.str());
    }
  }
}

}  // namespace

ControllerSettings load_controller_settings(const std::string& path) {
  ControllerSettings settings;
  const YAML::Node root = load_yaml(path, "POS_VEL_MODE");  // the part that is read first
  settings.pos_vel = parse_pos_vel_mode(require_map(root, path, "pos_vel_mode", "POS_VEL_MODE"));
  settings.mit = parse_mit_mode(require_map(root, path, "mit_mode", "MIT_MODE"));
  settings.joint_trajectory =
      parse_joint_trajectory(require_map(root, path, "joint_trajectory", "joint trajectory"));
  settings.motor_signs = parse_joint_array(child(root, "motor_signs"), path, "motor_signs");
  settings.joint_dynamics = parse_joint_dynamics(root, path);
  report_gains("kp", settings.mit.kp, damiao_motor::kMaxKp, settings.reports);
  report_gains("kd", settings.mit.kd, damiao_motor::kMaxKd, settings.reports);
  return settings;
}

}  // namespace kelvara::description
