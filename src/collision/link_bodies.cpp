#include "collision/link_bodies.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "kelvara/kinematics/kinematics.hpp"

#include "collision/scene.hpp"
#include "collision/separation.hpp"
#include "collision/urdf_solids.hpp"

namespace kelvara::collision {
namespace {

using LinkPair = std::pair<const Body*, const Body*>;

constexpr int kConfigurations = 200;

Body link_body(const std::string& name, const LinkFrames::Place& place,
               const UrdfSolids& description) {
  Body body{name, Body::Kind::kLink, place.frame, {}};
  const auto solids = description.links.find(name);
  if (solids != description.links.end()) {
    body.solids = solids->second;
  }
  for (Solid& solid : body.solids) {
    solid.pose = place.pose * solid.pose;
  }
  return body;
}

/// The index-th number of the van der Corput sequence, in [0, 1).
double spread(int index, int base) {
  double value = 0.0;
  for (double digit = 1.0 / base; index > 0; index /= base, digit /= base) {
    value += digit * (index % base);
  }
  return value;
}

/// Configurations spread evenly over the joint limits, the all-zero one first.
std::vector<JointArray> spread_configurations(const RobotKinematics& model) {
  constexpr std::array<int, kJointCount> kBases{2, 3, 5, 7, 11, 13};
  std::vector<JointArray> configurations(kConfigurations, JointArray{});
  std::size_t moving = 0;
  for (std::size_t joint = 0; joint < model.joints().size(); ++joint) {
    if (model.joints()[joint].type == "fixed") {
      continue;
    }
    const bool limited = model.joint_has_limits()[joint];
    const double lower = std::max(limited ? model.joint_lower()[joint] : -M_PI, -M_PI);
    const double upper = std::min(limited ? model.joint_upper()[joint] : M_PI, M_PI);
    for (int i = 1; i < kConfigurations; ++i) {
      configurations[i][moving] = lower + (upper - lower) * spread(i, kBases[moving]);
    }
    ++moving;
  }
  return configurations;
}

bool touch(const LinkPair& links, const Frames& frames) {
  for (const Solid& a : links.first->solids) {
    for (const Solid& b : links.second->solids) {
      const PlacedSolid first{a, frames[links.first->frame] * a.pose};
      const PlacedSolid second{b, frames[links.second->frame] * b.pose};
      if (separation(first, second).distance <= 0.0) {
        return true;
      }
    }
  }
  return false;
}

}  // namespace

std::vector<Body> link_bodies(const RobotKinematics& model,
                              const std::vector<LinkFrames::Place>& places) {
  const std::string& path = model.description_files().urdf_path;
  const UrdfSolids description = load_urdf_solids(path);
  const auto link_at = [&path](const std::map<std::string, std::string>& links,
                               const std::string& joint) {
    const auto link = links.find(joint);
    return link == links.end()
               ? throw std::runtime_error("URDF at " + path + " has lost joint '" + joint + "'")
               : link->second;
  };
  std::vector<Body> bodies{
      link_body(link_at(description.parents, model.joints().front().name), {}, description)};
  for (std::size_t i = 0; i < places.size(); ++i) {
    bodies.push_back(
        link_body(link_at(description.children, model.joints()[i].name), places[i], description));
  }
  const auto is_empty = [](const Body& body) { return body.solids.empty(); };
  bodies.erase(std::remove_if(bodies.begin(), bodies.end(), is_empty), bodies.end());
  if (bodies.empty() || bodies.back().frame == 0) {
    throw std::runtime_error("URDF at " + path + " has no collision solid on a moving link");
  }
  return bodies;
}

std::vector<std::pair<std::string, std::string>> lasting_contacts(const RobotKinematics& model,
                                                                  const LinkFrames& frames,
                                                                  const std::vector<Body>& links) {
  std::vector<std::pair<std::string, std::string>> contacts;
  std::vector<LinkPair> touching;
  for (const Body& first : links) {
    for (const Body& second : links) {
      if (second.frame == first.frame + 1) {
        contacts.emplace_back(first.name, second.name);
      } else if (second.frame > first.frame) {
        touching.emplace_back(&first, &second);
      }
    }
  }
  for (const JointArray& q : spread_configurations(model)) {
    const Frames at_q = frames.at(q);
    const auto apart = [&at_q](const LinkPair& pair) { return !touch(pair, at_q); };
    touching.erase(std::remove_if(touching.begin(), touching.end(), apart), touching.end());
  }
  for (const auto& [first, second] : touching) {
    contacts.emplace_back(first->name, second->name);
  }
  return contacts;
}

}  // namespace kelvara::collision
