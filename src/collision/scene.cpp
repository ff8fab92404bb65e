#include "collision/scene.hpp"

#include <algorithm>
#include <iterator>

#include "collision/link_bodies.hpp"

namespace kelvara::collision {
namespace {

Scene::Names ordered(const std::string& first, const std::string& second) {
  return std::minmax(first, second);
}

}  // namespace

Scene::Scene(const RobotKinematics& model)
    : frames_(model), bodies_(link_bodies(model, frames_.places())) {
  for (const auto& [first, second] : lasting_contacts(model, frames_, bodies_)) {
    allow(first, second);
  }
}

const Body* Scene::find(const std::string& name) const {
  const auto body = std::find_if(bodies_.begin(), bodies_.end(),
                                 [&name](const Body& other) { return other.name == name; });
  return body == bodies_.end() ? nullptr : &*body;
}

void Scene::set(const Body& body) {
  erase(body.name);
  bodies_.push_back(body);
}

void Scene::erase(const std::string& name) {
  bodies_.erase(std::remove_if(bodies_.begin(), bodies_.end(),
                               [&name](const Body& body) { return body.name == name; }),
                bodies_.end());
}

void Scene::remove(const std::string& name) {
  erase(name);
  for (auto names = allowed_.begin(); names != allowed_.end();) {
    const bool has_gone = names->first == name || names->second == name;
    names = has_gone ? allowed_.erase(names) : std::next(names);
  }
}

void Scene::allow(const std::string& first, const std::string& second) {
  allowed_.insert(ordered(first, second));
}

void Scene::forbid(const std::string& first, const std::string& second) {
  allowed_.erase(ordered(first, second));
}

std::vector<SolidPair> Scene::pairs() const {
  std::vector<SolidPair> pairs;
  for (const Body& first : bodies_) {
    for (const Body& second : bodies_) {
      if (first.frame < second.frame && allowed_.count(ordered(first.name, second.name)) == 0) {
        add_pairs(first, second, pairs);
      }
    }
  }
  return pairs;
}

void Scene::add_pairs(const Body& first, const Body& second, std::vector<SolidPair>& pairs) const {
  const bool are_links = first.kind == Body::Kind::kLink && second.kind == Body::Kind::kLink;
  const double contact_distance = are_links ? 0.0 : margin_;
  for (const Solid& near_solid : first.solids) {
    for (const Solid& far_solid : second.solids) {
      const double radius = far_solid.pose.translation().norm() + far_solid.reach();
      pairs.push_back({&first, &second, &near_solid, &far_solid, contact_distance,
                       frames_.lever_arms(first.frame, second.frame, radius)});
    }
  }
}

}  // namespace kelvara::collision
