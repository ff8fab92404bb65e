#include "simulation/simulated_arm/robot_description.hpp"

#include <tinyxml2.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
#include <stdexcept>

#include <Eigen/Geometry>
#include <yaml-cpp/yaml.h>

#include "simulation/simulated_arm/motor_facts.hpp"

namespace kelvara::simulation {
namespace {

using tinyxml2::XMLElement;

Triple parse_triple(const XMLElement* element, const char* attribute, const Triple& otherwise) {
  const char* text = element == nullptr ? nullptr : element->Attribute(attribute);
  if (text == nullptr) {
    return otherwise;
  }
  Triple values{};
  std::istringstream stream(text);
  if (!(stream >> values[0] >> values[1] >> values[2])) {
    throw std::runtime_error(std::string("'") + text + "' is not three numbers");
  }
  return values;
}

Eigen::Matrix3d rotation(const Triple& rpy) {
  return (Eigen::AngleAxisd(rpy[2], Eigen::Vector3d::UnitZ()) *
          Eigen::AngleAxisd(rpy[1], Eigen::Vector3d::UnitY()) *
          Eigen::AngleAxisd(rpy[0], Eigen::Vector3d::UnitX()))
      .toRotationMatrix();
}

double parse_length(const XMLElement* shape, const char* attribute) {
  const double length = shape->DoubleAttribute(attribute);
  if (!(length > 0.0)) {
    throw std::runtime_error(std::string("a <collision> needs a ") + attribute + " above 0");
  }
  return length;
}

Solid parse_solid(const XMLElement* collision) {
  const XMLElement* origin = collision->FirstChildElement("origin");
  Solid solid;
  solid.origin = parse_triple(origin, "xyz", {});
  solid.rpy = parse_triple(origin, "rpy", {});
  const XMLElement* geometry = collision->FirstChildElement("geometry");
  const XMLElement* shape = geometry == nullptr ? nullptr : geometry->FirstChildElement();
  const std::string name = shape == nullptr ? "" : shape->Name();
  if (name == "box") {
    solid.size = parse_triple(shape, "size", {});
    if (!std::all_of(solid.size.begin(), solid.size.end(),
                     [](double edge) { return edge > 0.0; })) {
      throw std::runtime_error("a <collision> needs a size above 0");
    }
  } else if (name == "sphere") {
    solid.shape = Solid::Shape::kSphere;
    solid.size = {parse_length(shape, "radius"), 0.0, 0.0};
  } else if (name == "cylinder") {
    solid.shape = Solid::Shape::kCylinder;
    solid.size = {parse_length(shape, "radius"), parse_length(shape, "length"), 0.0};
  } else {
    throw std::runtime_error("a <collision> must be a box, a sphere or a cylinder");
  }
  return solid;
}

std::vector<Solid> parse_solids(const XMLElement* link) {
  std::vector<Solid> solids;
  for (const XMLElement* collision = link->FirstChildElement("collision"); collision != nullptr;
       collision = collision->NextSiblingElement("collision")) {
    solids.push_back(parse_solid(collision));
  }
  return solids;
}

LinkDescription parse_link(const XMLElement* link) {
  LinkDescription result;
  try {
    result.solids = parse_solids(link);
  } catch (const std::runtime_error& error) {
    result.solids_error = error.what();
  }
  const XMLElement* inertial = link->FirstChildElement("inertial");
  if (inertial == nullptr) {
    return result;
  }
  const XMLElement* origin = inertial->FirstChildElement("origin");
  result.com = parse_triple(origin, "xyz", {});
  if (const XMLElement* mass = inertial->FirstChildElement("mass")) {
    result.mass = mass->DoubleAttribute("value");
  }
  if (const XMLElement* inertia = inertial->FirstChildElement("inertia")) {
    const double xx = inertia->DoubleAttribute("ixx"), xy = inertia->DoubleAttribute("ixy");
    const double xz = inertia->DoubleAttribute("ixz"), yy = inertia->DoubleAttribute("iyy");
    const double yz = inertia->DoubleAttribute("iyz"), zz = inertia->DoubleAttribute("izz");
    Eigen::Matrix3d tensor;
    tensor << xx, xy, xz, xy, yy, yz, xz, yz, zz;
    const Eigen::Matrix3d R = rotation(parse_triple(origin, "rpy", {}));
    tensor = R * tensor * R.transpose();
    result.inertia = {tensor(0, 0), tensor(1, 1), tensor(2, 2),
                      tensor(0, 1), tensor(0, 2), tensor(1, 2)};
  }
  return result;
}

JointDescription parse_joint(const XMLElement* element,
                             const std::map<std::string, LinkDescription>& links) {
  JointDescription joint;
  const char* name = element->Attribute("name");
  const XMLElement* child = element->FirstChildElement("child");
  const char* child_link = child == nullptr ? nullptr : child->Attribute("link");
  const XMLElement* limit = element->FirstChildElement("limit");
  if (name == nullptr || child_link == nullptr || limit == nullptr ||
      links.count(child_link) == 0) {
    throw std::runtime_error("a joint lacks its name, child link or limits");
  }
  joint.name = name;
  const XMLElement* origin = element->FirstChildElement("origin");
  joint.origin = parse_triple(origin, "xyz", {});
  joint.rpy = parse_triple(origin, "rpy", {});
  joint.axis = parse_triple(element->FirstChildElement("axis"), "xyz", joint.axis);
  joint.lower = limit->DoubleAttribute("lower");
  joint.upper = limit->DoubleAttribute("upper");
  joint.child = links.at(child_link);
  return joint;
}

std::map<std::string, LinkDescription> parse_links(const XMLElement* robot) {
  std::map<std::string, LinkDescription> links;
  for (const XMLElement* link = robot->FirstChildElement("link"); link != nullptr;
       link = link->NextSiblingElement("link")) {
    const char* name = link->Attribute("name");
    links[name == nullptr ? "" : name] = parse_link(link);
  }
  return links;
}

void load_urdf(const std::string& path, RobotDescription& description) {
  tinyxml2::XMLDocument document;
  if (document.LoadFile(path.c_str()) != tinyxml2::XML_SUCCESS) {
    throw std::runtime_error(document.ErrorStr());
  }
  const XMLElement* robot = document.FirstChildElement("robot");
  if (robot == nullptr) {
    throw std::runtime_error("no <robot> element");
  }
  const std::map<std::string, LinkDescription> links = parse_links(robot);
  std::string tip;  // the link that the next joint must start from; empty before the first
  for (const XMLElement* joint = robot->FirstChildElement("joint"); joint != nullptr;
       joint = joint->NextSiblingElement("joint")) {
    description.joints.push_back(parse_joint(joint, links));
    const XMLElement* parent = joint->FirstChildElement("parent");
    if (!tip.empty() && (parent == nullptr || !parent->Attribute("link", tip.c_str()))) {
      throw std::runtime_error("joint '" + description.joints.back().name +
                               "' does not continue the chain at link '" + tip + "'");
    }
    if (tip.empty()) {
      const char* base = parent == nullptr ? nullptr : parent->Attribute("link");
      const auto link = links.find(base == nullptr ? "" : base);
      description.base = link == links.end() ? LinkDescription{} : link->second;
    }
    tip = joint->FirstChildElement("child")->Attribute("link");
  }
  if (description.joints.size() != kJointCount) {
    throw std::runtime_error("the arm must have six joints");
  }
}

void load_config(const std::string& path, RobotDescription& description) {
  const YAML::Node root = YAML::LoadFile(path);
  description.tool = root["kinematics"]["tool"]["xyz"].as<Triple>();
  if (const YAML::Node payload = root["kinematics"]["payload"]) {
    description.payload.mass = payload["mass"].as<double>();
    const YAML::Node com = payload["com"] ? payload["com"] : payload["origin"]["xyz"];
    description.payload.com = com.as<Triple>();
  }
  description.motor_signs = root["motor_signs"].as<std::vector<double>>();
  if (description.motor_signs.size() != description.joints.size() ||
      !std::all_of(description.motor_signs.begin(), description.motor_signs.end(),
                   [](double sign) { return sign == 1.0 || sign == -1.0; })) {
    throw std::runtime_error("motor_signs must hold +1 or -1 for each joint");
  }
}

std::string find_file(const std::string& chosen, const char* name) {
  if (!chosen.empty()) {
    return chosen;
  }
  const auto program = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  for (const auto& folder : {program / "../config", std::filesystem::path("config")}) {
    if (std::filesystem::exists(folder / name)) {
      return (folder / name).string();
    }
  }
  throw std::runtime_error(std::string("cannot find ") + name + "; name it with --urdf, --config");
}

}  // namespace

RobotDescription load_robot_description(const std::string& urdf_path,
                                        const std::string& config_path) {
  const std::string urdf = find_file(urdf_path, "BrimloV2.SLDASM.urdf");
  const std::string config = find_file(config_path, "robot_kinematics.yaml");
  RobotDescription description;
  const std::string* path = &urdf;
  try {
    load_urdf(urdf, description);
    path = &config;
    load_config(config, description);
  } catch (const std::exception& error) {
    throw std::runtime_error(*path + ": " + error.what());
  }
  return description;
}

}  // namespace kelvara::simulation
