#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "collision/link_frames.hpp"
#include "collision/solid.hpp"

class RobotKinematics;

namespace kelvara::collision {

/// Solids that move as one.
struct Body {
  enum class Kind { kLink, kObstacle, kCarried };

  std::string name;
  Kind kind = Kind::kObstacle;
  std::size_t frame = 0;
  std::vector<Solid> solids;
};

/// Two solids that the arm moves relative to each other.
struct SolidPair {
  const Body* near_body;  // in the frame closer to the base
  const Body* far_body;
  const Solid* near_solid;
  const Solid* far_solid;
  double contact_distance;  // m, at most this far apart they count as touching
  JointArray lever_arms;    // m; times the joints' travel: bound of the change of their distance
};

/// The bodies, and the pairs of them that are checked. A value.
class Scene {
 public:
  using Names = std::pair<std::string, std::string>;  // in alphabetical order

  /// The links alone.
  explicit Scene(const RobotKinematics& model);

  const LinkFrames& frames() const { return frames_; }
  const std::vector<Body>& bodies() const { return bodies_; }
  const std::set<Names>& allowed() const { return allowed_; }
  /// @return Null for an unknown name.
  const Body* find(const std::string& name) const;
  /// Adds a body, or replaces that of the same name.
  void set(const Body& body);
  /// Removes a body and what is allowed for it.
  void remove(const std::string& name);
  void allow(const std::string& first, const std::string& second);
  void forbid(const std::string& first, const std::string& second);
  void set_margin(double metres) { margin_ = metres; }
  /// The pairs to check; they point into the scene.
  std::vector<SolidPair> pairs() const;

 private:
  void erase(const std::string& name);
  void add_pairs(const Body& first, const Body& second, std::vector<SolidPair>& pairs) const;

  LinkFrames frames_;
  std::vector<Body> bodies_;
  std::set<Names> allowed_;
  double margin_ = 0.0;  // m
};

}  // namespace kelvara::collision
