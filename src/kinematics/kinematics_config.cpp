#include "kinematics/kinematics_config.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <sstream>
#include <stdexcept>

#include <yaml-cpp/yaml.h>

#include "kelvara/kinematics/kinematics.hpp"

namespace kelvara::kinematics {
namespace {

[[noreturn]] void fail(const std::string& path, const std::string& what) {
  throw std::runtime_error("Invalid kinematics config at " + path + ": " + what);
}

/// A YAML number, read the same way whatever the process's locale is.
std::optional<double> parse_number(const std::string& text) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const auto is_one_of = [&](const auto& spellings) {
    return std::find(spellings.begin(), spellings.end(), text) != spellings.end();
  };
  if (is_one_of(std::array{".inf", ".Inf", ".INF", "+.inf", "+.Inf", "+.INF"})) {
    return kInfinity;
  }
  if (is_one_of(std::array{"-.inf", "-.Inf", "-.INF"})) {
    return -kInfinity;
  }
  if (is_one_of(std::array{".nan", ".NaN", ".NAN"})) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  double value = 0.0;
  if ((stream >> value) && (stream >> std::ws).eof()) {
    return value;
  }
  return std::nullopt;
}

/// The child of a map, or an undefined node for anything else.
YAML::Node child(const YAML::Node& node, const char* key) {
  return node.IsDefined() && node.IsMap() ? node[key] : YAML::Node(YAML::NodeType::Undefined);
}

Triple parse_vec3(const YAML::Node& node, const std::string& field_name, const std::string& path) {
  const std::string field = "field '" + field_name + "' ";
  if (!node.IsDefined() || !node.IsSequence() || node.size() != 3) {
    fail(path, field + "must be a sequence of 3 numbers");
  }
  Triple values{};
  for (std::size_t i = 0; i < values.size(); ++i) {
    const std::string text = node[i].Scalar();
    const std::optional<double> value = parse_number(text);
    if (!value) {
      fail(path, std::string(field).append("contains a non-numeric value: ").append(text));
    }
    values[i] = *value;
  }
  return values;
}

UrdfInertial parse_payload(const YAML::Node& payload, const std::string& path) {
  UrdfInertial inertial;
  const YAML::Node mass = child(payload, "mass");
  if (!mass.IsDefined() || !mass.IsScalar()) {
    fail(path, "missing or invalid 'kinematics.payload.mass'");
  }
  const std::optional<double> mass_value = parse_number(mass.Scalar());
  if (!mass_value) {
    fail(path, "'kinematics.payload.mass' must be numeric: " + mass.Scalar());
  }
  inertial.mass = *mass_value;

  const YAML::Node origin = child(payload, "origin");
  if (const YAML::Node com = child(payload, "com"); com.IsDefined()) {
    inertial.origin_xyz = parse_vec3(com, "kinematics.payload.com", path);
  } else if (const YAML::Node xyz = child(origin, "xyz"); xyz.IsDefined()) {
    inertial.origin_xyz = parse_vec3(xyz, "kinematics.payload.origin.xyz", path);
  } else {
    fail(path, "missing 'kinematics.payload.com' or 'kinematics.payload.origin.xyz'");
  }
  if (const YAML::Node rpy = child(origin, "rpy"); rpy.IsDefined()) {
    inertial.origin_rpy = parse_vec3(rpy, "kinematics.payload.origin.rpy", path);
  }
  return inertial;
}

YAML::Node load_file(const std::string& path) {
  try {
    return YAML::LoadFile(path);
  } catch (const YAML::BadFile& error) {
    throw std::runtime_error("Failed to open kinematics config at " + path + ": " + error.what());
  } catch (const YAML::ParserException& error) {
    throw std::runtime_error("Failed to parse kinematics config at " + path + ": " + error.what());
  }
}

}  // namespace

KinematicsConfig load_kinematics_config() {
  const std::string path = algorithms::resolve_robot_kinematics_config_path();
  const YAML::Node kinematics = child(load_file(path), "kinematics");
  const YAML::Node tool = child(kinematics, "tool");
  if (!tool.IsDefined() || !tool.IsMap()) {
    fail(path, "missing 'kinematics.tool' map");
  }
  KinematicsConfig config;
  config.tool_xyz = parse_vec3(child(tool, "xyz"), "kinematics.tool.xyz", path);
  config.tool_rpy = parse_vec3(child(tool, "rpy"), "kinematics.tool.rpy", path);
  if (const YAML::Node payload = child(kinematics, "payload"); payload.IsDefined()) {
    config.has_payload = true;
    config.payload = parse_payload(payload, path);
  }
  return config;
}

}  // namespace kelvara::kinematics
