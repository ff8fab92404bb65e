#include "description/kinematics_settings.hpp"

#include <stdexcept>
#include <string>

#include <yaml-cpp/yaml.h>

#include "description/yaml_file.hpp"

namespace kelvara::description {
namespace {

std::string invalid(const std::string& path) {
  return "Invalid kinematics config at " + path + ": ";
}

Triple parse_vec3(const YAML::Node& node, const std::string& field_name, const std::string& path) {
  return read_array<3>(node, {invalid(path) + "field '" + field_name + "' ",
                              [](const YAML::Node& entry) { return entry.Scalar(); }});
}

double parse_mass(const YAML::Node& mass, const std::string& path) {
  if (!mass.IsDefined() || !mass.IsScalar()) {
    throw std::runtime_error(invalid(path) + "missing or invalid 'kinematics.payload.mass'");
  }
  const std::optional<double> value = as_number(mass);
  if (!value) {
    throw std::runtime_error(invalid(path) +
                             "'kinematics.payload.mass' must be numeric: " + mass.Scalar());
  }
  return *value;
}

Triple parse_centre_of_mass(const YAML::Node& payload, const std::string& path) {
  if (const YAML::Node com = child(payload, "com"); com.IsDefined()) {
    return parse_vec3(com, "kinematics.payload.com", path);
  }
  if (const YAML::Node xyz = child(child(payload, "origin"), "xyz"); xyz.IsDefined()) {
    return parse_vec3(xyz, "kinematics.payload.origin.xyz", path);
  }
  throw std::runtime_error(invalid(path) +
                           "missing 'kinematics.payload.com' or 'kinematics.payload.origin.xyz'");
}

UrdfInertial parse_payload(const YAML::Node& payload, const std::string& path) {
  UrdfInertial inertial;
  inertial.mass = parse_mass(child(payload, "mass"), path);
  inertial.origin_xyz = parse_centre_of_mass(payload, path);
  if (const YAML::Node rpy = child(child(payload, "origin"), "rpy"); rpy.IsDefined()) {
    inertial.origin_rpy = parse_vec3(rpy, "kinematics.payload.origin.rpy", path);
  }
  return inertial;
}

}  // namespace

KinematicsConfig load_kinematics_config(const std::string& path) {
  const YAML::Node kinematics = child(load_yaml(path, "kinematics"), "kinematics");
  const YAML::Node tool = child(kinematics, "tool");
  if (!tool.IsDefined() || !tool.IsMap()) {
    throw std::runtime_error(invalid(path) + "missing 'kinematics.tool' map");
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

}  // namespace kelvara::description
