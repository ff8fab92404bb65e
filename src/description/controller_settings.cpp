#include "description/controller_settings.hpp"

#include <stdexcept>

#include <yaml-cpp/yaml.h>

#include "kelvara/kinematics/kinematics.hpp"

namespace kelvara::description {
namespace {

/// The robot's YAML file, opened for one of its parts.
struct ConfigFile {
  std::string path;
  YAML::Node root;
};

/// @param subject What the messages call the part that is read.
ConfigFile open_config(const std::string& subject) {
  ConfigFile file{algorithms::resolve_robot_kinematics_config_path(), {}};
  try {
    file.root = YAML::LoadFile(file.path);
  } catch (const YAML::BadFile& error) {
    throw UnreadableFile("Failed to open " + subject + " config at " + file.path + ": " +
                         error.what());
  } catch (const YAML::ParserException& error) {
    throw UnreadableFile("Failed to parse " + subject + " config at " + file.path + ": " +
                         error.what());
  }
  return file;
}

/// The child of a map, or an undefined node for anything else.
YAML::Node child(const YAML::Node& node, const char* key) {
  return node.IsDefined() && node.IsMap() ? node[key] : YAML::Node(YAML::NodeType::Undefined);
}

YAML::Node require_map(const ConfigFile& file, const char* key, const std::string& subject) {
  const YAML::Node map = child(file.root, key);
  if (!map.IsDefined() || !map.IsMap()) {
    throw std::runtime_error("Invalid " + subject + " config at " + file.path + ": missing '" +
                             key + "' map");
  }
  return map;
}

std::string invalid_array(const std::string& config_path, const std::string& field_name) {
  return "Invalid joint array config at " + config_path + ": field '" + field_name + "' ";
}

JointArray parse_joint_array(const YAML::Node& node, const std::string& config_path,
                             const std::string& field_name) {
  const std::string where = invalid_array(config_path, field_name);
  if (!node.IsDefined() || !node.IsSequence() || node.size() != kJointCount) {
    throw std::runtime_error(where + "must be a sequence of 6 numbers");
  }
  JointArray values{};
  for (std::size_t i = 0; i < values.size(); ++i) {
    try {
      values[i] = node[i].as<double>();
    } catch (const YAML::BadConversion& error) {
      throw std::runtime_error(where + "contains a non-numeric value: " + error.what());
    }
  }
  return values;
}

/// A joint array of limits or gains. One that is negative, or no number, would turn a limit into a
/// command or leave a joint limp.
JointArray parse_limits(const YAML::Node& node, const std::string& config_path,
                        const std::string& field_name) {
  const JointArray limits = parse_joint_array(node, config_path, field_name);
  for (const double limit : limits) {
    if (!(limit >= 0.0)) {
      throw std::runtime_error(invalid_array(config_path, field_name) +
                               "must not hold negative values");
    }
  }
  return limits;
}

/// An optional number; absent or null leaves `value` as it is.
void read_number(const YAML::Node& node, double& value, const std::string& message) {
  if (!node.IsDefined() || node.IsNull()) {
    return;
  }
  try {
    value = node.as<double>();
  } catch (const YAML::BadConversion&) {
    throw std::runtime_error(message);
  }
}

PosVelModeConfig load_pos_vel_mode_config(const ConfigFile& file) {
  const YAML::Node map = require_map(file, "pos_vel_mode", "POS_VEL_MODE");
  const auto array = [&](const char* key) {
    return parse_joint_array(child(map, key), file.path, std::string("pos_vel_mode.") + key);
  };
  return {parse_limits(child(map, "max_acc_limits"), file.path, "pos_vel_mode.max_acc_limits"),
          array("max_dec_limits"), array("kp_apr_limits")};
}

MitModeConfig load_mit_mode_config(const ConfigFile& file) {
  const YAML::Node map = require_map(file, "mit_mode", "MIT_MODE");
  const auto array = [&](const char* key) {
    return parse_limits(child(map, key), file.path, std::string("mit_mode.") + key);
  };
  MitModeConfig config{array("kp"), array("kd"), array("gravity_tau_limits")};
  read_number(child(map, "gravity_comp_scale"), config.gravity_comp_scale,
              "Invalid MIT_MODE config at " + file.path + ": gravity_comp_scale must be a number");
  return config;
}

JointTrajectoryConfig load_joint_trajectory_config(const ConfigFile& file) {
  const YAML::Node map = require_map(file, "joint_trajectory", "joint trajectory");
  const auto array = [&](const char* key) {
    return parse_joint_array(child(map, key), file.path, std::string("joint_trajectory.") + key);
  };
  JointTrajectoryConfig config{array("max_vel_limits"), array("max_acc_limits"),
                               array("max_jerk_limits")};
  const std::string message = "Invalid joint trajectory config at " + file.path +
                              ": default_speed_percent must be in (0, 1]";
  read_number(child(map, "default_speed_percent"), config.default_speed_percent, message);
  if (!(config.default_speed_percent > 0.0 && config.default_speed_percent <= 1.0)) {
    throw std::runtime_error(message);
  }
  return config;
}

JointArray load_motor_signs_config(const ConfigFile& file) {
  return parse_joint_array(child(file.root, "motor_signs"), file.path, "motor_signs");
}

}  // namespace

ControllerSettings load_controller_settings() {
  const ConfigFile file = open_config("POS_VEL_MODE");
  ControllerSettings settings;
  settings.path = file.path;
  settings.pos_vel = load_pos_vel_mode_config(file);
  settings.mit = load_mit_mode_config(file);
  settings.joint_trajectory = load_joint_trajectory_config(file);
  settings.motor_signs = load_motor_signs_config(file);
  return settings;
}

}  // namespace kelvara::description
