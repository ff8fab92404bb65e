#include "description/urdf.hpp"

#include <tinyxml2.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <unordered_set>

#include "description/number.hpp"

namespace kelvara::description {
namespace {

using tinyxml2::XMLElement;
using JointsByParent = std::unordered_map<std::string, std::vector<UrdfJoint>>;

constexpr double kMinAxisNorm = 1e-12;

/// Three numbers separated by white space; what follows them is ignored. A null text, of an
/// attribute that is missing, is (0, 0, 0).
Triple parse_xyz_attr(const char* text) {
  Triple values{};
  if (text == nullptr) {
    return values;
  }
  std::istringstream words(text);
  words.imbue(std::locale::classic());
  for (double& value : values) {
    std::string word;
    words >> word;
    const std::optional<double> number = parse_number(word, NonFinite::kNone);
    if (!number) {
      throw std::runtime_error("Failed to parse xyz/rpy vector from '" + std::string(text) + "'");
    }
    value = *number;
  }
  return values;
}

void read_origin(const XMLElement* parent, Triple& xyz, Triple& rpy) {
  if (const XMLElement* origin = parent->FirstChildElement("origin")) {
    xyz = parse_xyz_attr(origin->Attribute("xyz"));
    rpy = parse_xyz_attr(origin->Attribute("rpy"));
  }
}

/// Reads an attribute; leaves `value` as it is when the attribute is missing or not numeric.
bool read_double(const XMLElement* element, const char* attribute, double& value) {
  const char* text = element->Attribute(attribute);
  const std::optional<double> number =
      text == nullptr ? std::nullopt : parse_number(text, NonFinite::kUrdf);
  value = number.value_or(value);
  return number.has_value();
}

// ---- Links ----------------------------------------------------------------

UrdfInertial parse_inertial(const XMLElement* inertial, const std::string& link_name) {
  UrdfInertial result;
  read_origin(inertial, result.origin_xyz, result.origin_rpy);
  if (const XMLElement* mass = inertial->FirstChildElement("mass")) {
    if (!read_double(mass, "value", result.mass)) {
      throw std::runtime_error("Failed to parse mass for link '" + link_name + "'");
    }
  }
  if (const XMLElement* inertia = inertial->FirstChildElement("inertia")) {
    const bool complete =
        read_double(inertia, "ixx", result.ixx) && read_double(inertia, "ixy", result.ixy) &&
        read_double(inertia, "ixz", result.ixz) && read_double(inertia, "iyy", result.iyy) &&
        read_double(inertia, "iyz", result.iyz) && read_double(inertia, "izz", result.izz);
    if (!complete) {
      throw std::runtime_error("Failed to parse inertia matrix for link '" + link_name + "'");
    }
  }
  return result;
}

std::unordered_map<std::string, UrdfInertial> parse_link_inertials(const XMLElement* robot) {
  std::unordered_map<std::string, UrdfInertial> inertials;
  for (const XMLElement* link = robot->FirstChildElement("link"); link != nullptr;
       link = link->NextSiblingElement("link")) {
    const char* name = link->Attribute("name");
    if (name == nullptr) {
      throw std::runtime_error("Encountered URDF link without a name attribute");
    }
    const XMLElement* inertial = link->FirstChildElement("inertial");
    inertials.emplace(name, inertial == nullptr ? UrdfInertial{} : parse_inertial(inertial, name));
  }
  return inertials;
}

std::unordered_set<std::string> parse_link_names(const XMLElement* robot) {
  std::unordered_set<std::string> names;
  for (const XMLElement* link = robot->FirstChildElement("link"); link != nullptr;
       link = link->NextSiblingElement("link")) {
    if (const char* name = link->Attribute("name")) {
      names.insert(name);
    }
  }
  return names;
}

// ---- Joints ---------------------------------------------------------------

std::string parse_link_reference(const XMLElement* joint, const char* role,
                                 const std::string& joint_name) {
  const XMLElement* element = joint->FirstChildElement(role);
  const char* link = element == nullptr ? nullptr : element->Attribute("link");
  if (link == nullptr) {
    throw std::runtime_error("URDF joint '" + joint_name + "' is missing parent/child link");
  }
  return link;
}

Triple parse_axis(const XMLElement* axis, const std::string& joint_name) {
  const auto [x, y, z] = parse_xyz_attr(axis->Attribute("xyz"));
  const double norm = std::hypot(x, y, z);  // the squares can overflow
  if (norm < kMinAxisNorm) {
    throw std::runtime_error("URDF joint '" + joint_name + "' has zero-length axis");
  }
  if (std::isinf(norm)) {
    throw std::runtime_error("URDF joint '" + joint_name + "' has an axis that is too long");
  }
  return {x / norm, y / norm, z / norm};
}

/// Reads one limit. A text that is not numeric counts as missing, which leaves the joint without
/// limits: that is reported.
bool read_limit(const XMLElement* limit, const char* attribute, double& value, UrdfJoint& joint) {
  const bool numeric = read_double(limit, attribute, value);
  const char* text = limit->Attribute(attribute);
  if (!numeric && text != nullptr) {
    joint.reports.push_back("URDF joint '" + joint.name + "': limit " + attribute + "='" + text +
                            "' is not numeric; the joint has no limits");
  }
  return numeric;
}

/// A NaN limit bounds nothing; lower = +inf or upper = -inf would exclude every angle. Such a joint
/// counts as unlimited.
void read_limits(const XMLElement* limit, UrdfJoint& joint) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const bool has_lower = read_limit(limit, "lower", joint.lower, joint);
  const bool has_upper = read_limit(limit, "upper", joint.upper, joint);
  joint.has_limits = has_lower && has_upper && joint.lower < kInfinity && joint.upper > -kInfinity;
}

UrdfJoint parse_joint(const XMLElement* element) {
  const char* name = element->Attribute("name");
  const char* type = element->Attribute("type");
  if (name == nullptr || type == nullptr) {
    throw std::runtime_error("Encountered URDF joint without name/type");
  }
  UrdfJoint joint;
  joint.name = name;
  joint.type = type;
  joint.parent = parse_link_reference(element, "parent", joint.name);
  joint.child = parse_link_reference(element, "child", joint.name);
  read_origin(element, joint.origin_xyz, joint.origin_rpy);
  if (const XMLElement* axis = element->FirstChildElement("axis")) {
    joint.axis = parse_axis(axis, joint.name);
  }
  const XMLElement* limit = element->FirstChildElement("limit");
  if (joint.type != "continuous" && limit != nullptr) {
    read_limits(limit, joint);
  }
  return joint;
}

std::string find_root(const std::unordered_set<std::string>& links,
                      const std::unordered_set<std::string>& children) {
  for (const std::string& link : links) {
    if (children.count(link) == 0) {
      return link;
    }
  }
  throw std::runtime_error("Failed to determine URDF root link");
}

std::vector<UrdfJoint> walk_chain(const std::string& root, const JointsByParent& joints) {
  std::vector<UrdfJoint> chain;
  std::unordered_set<std::string> visited{root};
  std::string current = root;
  for (auto next = joints.find(current); next != joints.end(); next = joints.find(current)) {
    if (next->second.size() > 1) {
      throw std::runtime_error("URDF is not a single serial chain at link '" + current + "'");
    }
    const UrdfJoint& joint = next->second.front();
    if (!visited.insert(joint.child).second) {
      throw std::runtime_error("Detected URDF cycle at link '" + joint.child + "'");
    }
    chain.push_back(joint);
    current = joint.child;
  }
  return chain;
}

/// Orders the joints of a <robot> element into one serial chain.
std::vector<UrdfJoint> parse_joint_chain(const XMLElement* robot) {
  const std::unordered_set<std::string> links = parse_link_names(robot);
  JointsByParent joints;
  std::unordered_set<std::string> children;
  for (const XMLElement* element = robot->FirstChildElement("joint"); element != nullptr;
       element = element->NextSiblingElement("joint")) {
    UrdfJoint joint = parse_joint(element);
    children.insert(joint.child);
    joints[joint.parent].push_back(std::move(joint));
  }
  return walk_chain(find_root(links, children), joints);
}

}  // namespace

UrdfDescription load_urdf(const std::string& path) {
  tinyxml2::XMLDocument document;
  if (document.LoadFile(path.c_str()) != tinyxml2::XML_SUCCESS) {
    throw std::runtime_error("Failed to load URDF at " + path + ": " + document.ErrorStr());
  }
  const XMLElement* robot = document.FirstChildElement("robot");
  if (robot == nullptr) {
    throw std::runtime_error("URDF at " + path + " does not contain a <robot> root");
  }
  UrdfDescription description;
  description.inertials = parse_link_inertials(robot);
  description.joints = parse_joint_chain(robot);
  return description;
}

}  // namespace kelvara::description
