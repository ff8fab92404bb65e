#include "collision/urdf_solids.hpp"

#include <tinyxml2.h>

#include <array>
#include <locale>
#include <sstream>
#include <stdexcept>

#include "kelvara/kinematics/transforms.hpp"

#include "description/number.hpp"

namespace kelvara::collision {
namespace {

using tinyxml2::XMLElement;

/// The numbers of an attribute, as many as the array has.
template <std::size_t Count>
std::array<double, Count> numbers_of(const XMLElement& element, const char* attribute) {
  std::istringstream words(element.Attribute(attribute) ? element.Attribute(attribute) : "");
  words.imbue(std::locale::classic());
  std::array<double, Count> values{};
  for (double& value : values) {
    std::string word;
    words >> word;
    const auto number = description::parse_number(word, description::NonFinite::kNone);
    if (!number) {
      throw std::runtime_error(std::string("<") + element.Name() + "> needs " +
                               std::to_string(Count) + " numbers in '" + attribute + "'");
    }
    value = *number;
  }
  return values;
}

/// A size of a solid.
template <std::size_t Count>
std::array<double, Count> sizes_of(const XMLElement& element, const char* attribute) {
  const std::array<double, Count> sizes = numbers_of<Count>(element, attribute);
  for (const double size : sizes) {
    if (!(size > 0.0)) {
      throw std::runtime_error(std::string("<") + element.Name() + "> has a size of 0 or less");
    }
  }
  return sizes;
}

constexpr const char* kSupported = "only box, cylinder and sphere are supported, not ";

Solid solid_of(const XMLElement* geometry) {
  const XMLElement* shape = geometry == nullptr ? nullptr : geometry->FirstChildElement();
  if (shape == nullptr) {
    throw std::runtime_error(kSupported + std::string("nothing"));
  }
  const std::string kind = shape->Name();
  if (kind == "box") {
    return Solid::box(sizes_of<3>(*shape, "size"));
  }
  if (kind == "cylinder") {
    return Solid::cylinder(sizes_of<1>(*shape, "radius")[0], sizes_of<1>(*shape, "length")[0]);
  }
  if (kind == "sphere") {
    return Solid::sphere(sizes_of<1>(*shape, "radius")[0]);
  }
  throw std::runtime_error(kSupported + kind);
}

Eigen::Isometry3d pose_of(const XMLElement& collision) {
  const XMLElement* origin = collision.FirstChildElement("origin");
  const auto triple = [origin](const char* attribute) {
    const bool is_given = origin != nullptr && origin->Attribute(attribute) != nullptr;
    const auto values = is_given ? numbers_of<3>(*origin, attribute) : std::array<double, 3>{};
    return Eigen::Vector3d(values.data());
  };
  return Eigen::Isometry3d(t_from_xyzrpy(triple("xyz"), triple("rpy")));
}

std::string name_of(const XMLElement* element, const char* attribute) {
  const char* name = element == nullptr ? nullptr : element->Attribute(attribute);
  return name == nullptr ? "" : name;
}

std::vector<Solid> solids_of(const XMLElement& link) try {
  std::vector<Solid> solids;
  for (const XMLElement* collision = link.FirstChildElement("collision"); collision != nullptr;
       collision = collision->NextSiblingElement("collision")) {
    solids.push_back(solid_of(collision->FirstChildElement("geometry")));
    solids.back().pose = pose_of(*collision);
  }
  return solids;
} catch (const std::runtime_error& error) {
  throw std::runtime_error("collision solid of URDF link '" + name_of(&link, "name") +
                           "': " + error.what());
}

}  // namespace

UrdfSolids load_urdf_solids(const std::string& path) {
  tinyxml2::XMLDocument document;
  const bool is_loaded = document.LoadFile(path.c_str()) == tinyxml2::XML_SUCCESS;
  const XMLElement* robot = is_loaded ? document.FirstChildElement("robot") : nullptr;
  if (robot == nullptr) {
    throw std::runtime_error("Failed to load the collision solids of the URDF at " + path);
  }
  UrdfSolids solids;
  for (const XMLElement* element = robot->FirstChildElement(); element != nullptr;
       element = element->NextSiblingElement()) {
    const std::string kind = element->Name();
    const std::string name = name_of(element, "name");
    if (kind == "link") {
      solids.links[name] = solids_of(*element);
    } else if (kind == "joint") {
      solids.parents[name] = name_of(element->FirstChildElement("parent"), "link");
      solids.children[name] = name_of(element->FirstChildElement("child"), "link");
    }
  }
  return solids;
}

}  // namespace kelvara::collision
