#include "simulation/simulated_arm/scene.hpp"

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <yaml-cpp/yaml.h>

namespace kelvara::simulation {
namespace {

struct Range {
  double low;
  double high;
};

constexpr Range kHeight{-2.0, 2.0};   // m
constexpr Range kLength{0.001, 5.0};  // m
constexpr Range kPlace{-5.0, 5.0};    // m
constexpr Range kAngle{-6.3, 6.3};    // rad
constexpr Range kMass{0.001, 50.0};   // kg
constexpr Range kFriction{0.0, 5.0};
constexpr std::ptrdiff_t kMaxMoving = 20;  // bodies, for which the simulation keeps up with time
constexpr char kNameCharacters[] =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";

[[noreturn]] void fail(const YAML::Node& node, const std::string& key, const std::string& problem) {
  std::ostringstream text;
  text << "line " << node.Mark().line + 1 << ", " << key << ": " << problem;
  throw std::runtime_error(text.str());
}

/// A map whose keys are all known, and its place in the file, such as "bodies[0]".
class Map {
 public:
  Map(const YAML::Node& node, std::string place) : node_(node), place_(std::move(place)) {
    if (!node.IsMap()) {
      fail(node, place_.empty() ? "scene" : place_, "must be a map");
    }
  }

  std::string name_of(const std::string& key) const {
    return place_.empty() ? key : place_ + "." + key;
  }

  void require_known_keys(std::initializer_list<const char*> known) const {
    std::set<std::string> keys;
    for (const auto& entry : node_) {
      const auto key = entry.first.as<std::string>();
      if (std::find(known.begin(), known.end(), key) == known.end()) {
        fail(entry.first, name_of(key), "unknown key");
      }
      if (!keys.insert(key).second) {
        fail(entry.first, name_of(key), "stands twice");
      }
    }
  }

  bool has(const char* key) const { return node_[key].IsDefined(); }

  YAML::Node at(const char* key) const {
    if (!has(key)) {
      fail(node_, name_of(key), "is missing");
    }
    return node_[key];
  }

  std::string word(const char* key) const {
    const YAML::Node value = at(key);
    if (!value.IsScalar()) {
      fail(value, name_of(key), "must be a word");
    }
    return value.Scalar();
  }

  double number(const char* key, const Range& range) const {
    return number_of(at(key), name_of(key), range);
  }
  double number(const char* key, const Range& range, double otherwise) const {
    return has(key) ? number(key, range) : otherwise;
  }

  Triple triple(const char* key, const Range& range) const {
    const YAML::Node value = at(key);
    Triple numbers{};
    if (!value.IsSequence() || value.size() != numbers.size()) {
      fail(value, name_of(key), "must be three numbers");
    }
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      numbers[i] = number_of(value[i], name_of(key), range);
    }
    return numbers;
  }

 private:
  static double number_of(const YAML::Node& value, const std::string& name, const Range& range) {
    double number = 0.0;
    if (!YAML::convert<double>::decode(value, number)) {
      fail(value, name, "is not a number");
    }
    if (!(number >= range.low && number <= range.high)) {
      std::ostringstream problem;
      problem << "must be " << range.low << " to " << range.high;
      fail(value, name, problem.str());
    }
    return number;
  }

  YAML::Node node_;
  std::string place_;
};

Table parse_table(const YAML::Node& node) {
  const Map map(node, "table");
  map.require_known_keys({"height", "friction"});
  return {map.number("height", kHeight), map.number("friction", kFriction, kDefaultFriction)};
}

Solid parse_solid(const Map& map, const YAML::Node& node) {
  Solid solid;
  const std::string shape = map.word("shape");
  if (shape == "box") {
    solid.shape = Solid::Shape::kBox;
    solid.size = map.triple("size", kLength);
  } else if (shape == "sphere") {
    solid.shape = Solid::Shape::kSphere;
    solid.size = {map.number("radius", kLength), 0.0, 0.0};
  } else if (shape == "cylinder") {
    solid.shape = Solid::Shape::kCylinder;
    solid.size = {map.number("radius", kLength), map.number("length", kLength), 0.0};
  } else {
    fail(node["shape"], map.name_of("shape"), "must be box, sphere or cylinder");
  }
  solid.origin = map.triple("position", kPlace);
  solid.rpy = map.has("rpy") ? map.triple("rpy", kAngle) : Triple{};
  return solid;
}

/// The keys depend on the shape, and on whether the body is fixed.
void require_known_body_keys(const Map& map, const std::string& shape, bool fixed) {
  const char* const mass = fixed ? "fixed" : "mass";
  const char* const extent = shape == "box" ? "size" : "radius";
  const char* const length = shape == "cylinder" ? "length" : extent;
  map.require_known_keys(
      {"name", "shape", "position", "rpy", "friction", "fixed", mass, extent, length});
}

bool parse_fixed(const Map& map) {
  bool fixed = false;
  if (map.has("fixed") && !YAML::convert<bool>::decode(map.at("fixed"), fixed)) {
    fail(map.at("fixed"), map.name_of("fixed"), "must be true or false");
  }
  return fixed;
}

Body parse_body(const YAML::Node& node, std::size_t index) {
  const Map map(node, "bodies[" + std::to_string(index) + "]");
  const bool fixed = parse_fixed(map);
  Body body;
  body.line = node.Mark().line + 1;
  body.name = map.word("name");
  if (body.name.empty() || body.name.find_first_not_of(kNameCharacters) != std::string::npos) {
    fail(map.at("name"), map.name_of("name"), "must be letters, digits, _ and -");
  }
  body.solid = parse_solid(map, node);
  require_known_body_keys(map, map.word("shape"), fixed);
  body.mass = fixed ? 0.0 : map.number("mass", kMass);
  body.friction = map.number("friction", kFriction, kDefaultFriction);
  return body;
}

std::vector<Body> parse_bodies(const YAML::Node& node) {
  if (!node.IsSequence()) {
    fail(node, "bodies", "must be a list");
  }
  std::vector<Body> bodies;
  std::set<std::string> names;
  for (std::size_t i = 0; i < node.size(); ++i) {
    bodies.push_back(parse_body(node[i], i));
    if (!names.insert(bodies.back().name).second) {
      fail(node[i]["name"], "bodies[" + std::to_string(i) + "].name", "another body has this name");
    }
  }
  if (std::count_if(bodies.begin(), bodies.end(),
                    [](const Body& body) { return body.mass > 0.0; }) > kMaxMoving) {
    fail(node, "bodies", "at most 20 may move");
  }
  return bodies;
}

}  // namespace

Scene load_scene(const std::string& path) {
  try {
    const YAML::Node root = YAML::LoadFile(path);
    const Map map(root, "");
    map.require_known_keys({"table", "bodies"});
    Scene scene;
    scene.path = path;
    if (map.has("table")) {
      scene.table = parse_table(map.at("table"));
    }
    if (map.has("bodies")) {
      scene.bodies = parse_bodies(map.at("bodies"));
    }
    return scene;
  } catch (const YAML::BadFile&) {
    throw std::runtime_error(path + ": cannot be read");
  } catch (const YAML::ParserException& error) {
    throw std::runtime_error(path + ": line " + std::to_string(error.mark.line + 1) + ": " +
                             error.msg);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(path + ": " + error.what());
  }
}

}  // namespace kelvara::simulation
