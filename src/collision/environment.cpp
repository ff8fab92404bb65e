#include "kelvara/collision/environment.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <stdexcept>

#include "kelvara/kinematics/transforms.hpp"

#include "collision/plan_scan.hpp"
#include "collision/scene.hpp"

namespace kelvara {
namespace {

using collision::Approach;
using collision::Body;
using collision::PlanScan;
using collision::Scene;
using collision::Solid;

constexpr char kFloor[] = "floor";
// Of sizes and positions, m. Beyond it rounding would stop the short steps of a check.
constexpr double kLargest = 1e3;

[[noreturn]] void refuse(const std::string& why) {
  throw std::invalid_argument("Environment: " + why);
}

void require_finite(const std::array<double, 3>& values, const char* what) {
  if (!std::all_of(values.begin(), values.end(), [](double v) { return std::isfinite(v); })) {
    refuse(std::string(what) + " must be finite");
  }
}

void require_position(const std::array<double, 3>& position, const char* what) {
  if (!std::all_of(position.begin(), position.end(),
                   [](double v) { return std::abs(v) <= kLargest; })) {
    refuse(std::string(what) + " must lie within 1000 m");
  }
}

void require_size(double size, const char* what) {
  if (!(size > 0.0 && size <= kLargest)) {
    refuse(std::string(what) + " must be positive and at most 1000 m");
  }
}

/// A name that a link or a body has, or the floor.
const Body& known(const Scene& scene, const std::string& name) {
  const Body* body = scene.find(name);
  if (body == nullptr) {
    refuse("there is no '" + name + "'");
  }
  return *body;
}

void require_new(const Scene& scene, const std::string& name) {
  if (name.empty() || name == kFloor || scene.find(name) != nullptr) {
    refuse("the name '" + name + "' is empty, in use or reserved");
  }
}

void require_distinct(const Scene& scene, const std::string& first, const std::string& second) {
  if (&known(scene, first) == &known(scene, second)) {
    refuse("'" + first + "' is one body, not two");
  }
}

void require_samples(const Plan& plan) {
  if (plan.empty()) {
    refuse("the plan has no samples");
  }
}

Eigen::Isometry3d transform_of(const Pose& pose) {
  require_position(pose.position, "a position");
  require_finite(pose.rpy, "an orientation");
  return Eigen::Isometry3d(
      t_from_xyzrpy(Eigen::Vector3d(pose.position.data()), Eigen::Vector3d(pose.rpy.data())));
}

Solid box_of(const std::array<double, 3>& size) {
  for (const double edge : size) {
    require_size(edge, "the edges of a box");
  }
  return Solid::box(size);
}

std::string described(const Scene& scene, const std::string& name) {
  if (name == kFloor) {
    return "the floor";
  }
  return scene.find(name)->kind == Body::Kind::kLink ? name : "'" + name + "'";
}

/// For example "link6 touches 'table' 0.84 s after the start, 3.2 mm deep".
std::string text_of(const Scene& scene, const Contact& contact) {
  const std::string first = described(scene, contact.first);
  const std::string second = described(scene, contact.second);
  char time[48];
  char depth[48];
  std::snprintf(time, sizeof(time), " %.2f s after the start", contact.time_s);
  std::snprintf(depth, sizeof(depth), "%.1f mm", 1e3 * std::abs(contact.depth_m));
  return contact.depth_m < 0.0 ? first + " comes within " + depth + " of " + second + time
                               : first + " touches " + second + time + ", " + depth + " deep";
}

Contact contact_of(PlanScan& scan, const Approach& approach, double distance) {
  const collision::SolidPair& pair = scan.pair(approach);
  const Eigen::Vector3d point = scan.point(approach);
  return {scan.time_s(approach),
          pair.far_body->name,
          pair.near_body->name,
          -distance,
          {point.x(), point.y(), point.z()}};
}

}  // namespace

struct Environment::Impl {
  explicit Impl(const RobotKinematics& model) : scene(model) {}

  void add(const std::string& name, Body::Kind kind, Solid solid, const Eigen::Isometry3d& pose) {
    require_new(scene, name);
    const bool is_carried = kind == Body::Kind::kCarried;
    solid.pose = is_carried ? scene.frames().tool() * pose : pose;
    scene.set({name, kind, is_carried ? kJointCount : 0, {solid}});
  }

  Scene scene;
};

Environment::Environment(const RobotKinematics& model) : impl_(std::make_unique<Impl>(model)) {}
Environment::Environment(const Environment& other)
    : PlanCheck(other), impl_(std::make_unique<Impl>(*other.impl_)) {}
Environment::Environment(Environment&& other) noexcept = default;
Environment& Environment::operator=(const Environment& other) {
  impl_ = std::make_unique<Impl>(*other.impl_);
  return *this;
}
Environment& Environment::operator=(Environment&& other) noexcept = default;
Environment::~Environment() = default;

// ---- What stands around the arm ----

void Environment::set_floor(double z) {
  require_position({z, 0.0, 0.0}, "the floor");
  Solid floor = Solid::floor();
  floor.pose.translation().z() = z;
  impl_->scene.set({kFloor, Body::Kind::kObstacle, 0, {floor}});
}

void Environment::add_box(const std::string& name, const std::array<double, 3>& size,
                          const Pose& pose) {
  impl_->add(name, Body::Kind::kObstacle, box_of(size), transform_of(pose));
}

void Environment::add_sphere(const std::string& name, double radius,
                             const std::array<double, 3>& position) {
  require_size(radius, "the radius of a sphere");
  impl_->add(name, Body::Kind::kObstacle, Solid::sphere(radius), transform_of({position, {}}));
}

void Environment::add_capsule(const std::string& name, double radius, double length,
                              const Pose& pose) {
  require_size(radius, "the radius of a capsule");
  require_size(length, "the length of a capsule");
  impl_->add(name, Body::Kind::kObstacle, Solid::capsule(radius, length), transform_of(pose));
}

void Environment::attach_box(const std::string& name, const std::array<double, 3>& size,
                             const Pose& pose) {
  impl_->add(name, Body::Kind::kCarried, box_of(size), transform_of(pose));
}

void Environment::remove(const std::string& name) {
  if (known(impl_->scene, name).kind == Body::Kind::kLink) {
    refuse("'" + name + "' is a link of the arm");
  }
  impl_->scene.remove(name);
}

void Environment::detach(const std::string& name) {
  if (known(impl_->scene, name).kind != Body::Kind::kCarried) {
    refuse("'" + name + "' is not carried by the tool");
  }
  impl_->scene.remove(name);
}

// ---- What counts as a contact ----

void Environment::allow_contact(const std::string& first, const std::string& second) {
  require_distinct(impl_->scene, first, second);
  impl_->scene.allow(first, second);
}

void Environment::forbid_contact(const std::string& first, const std::string& second) {
  require_distinct(impl_->scene, first, second);
  impl_->scene.forbid(first, second);
}

std::vector<std::pair<std::string, std::string>> Environment::allowed_contacts() const {
  return {impl_->scene.allowed().begin(), impl_->scene.allowed().end()};
}

void Environment::set_margin(double metres) {
  if (!(metres >= 0.0 && std::isfinite(metres))) {
    refuse("the margin must be finite and not negative");
  }
  impl_->scene.set_margin(metres);
}

// ---- Checks ----

std::optional<Contact> Environment::first_contact(const Plan& plan) const {
  require_samples(plan);
  PlanScan scan(impl_->scene, plan);
  const std::optional<Approach> approach = scan.first_contact();
  return approach ? std::optional(contact_of(scan, *approach, scan.deepest(*approach)))
                  : std::nullopt;
}

Clearance Environment::clearance(const Plan& plan) const {
  require_samples(plan);
  PlanScan scan(impl_->scene, plan);
  const std::optional<Approach> closest = scan.closest();
  if (!closest) {
    return {std::numeric_limits<double>::infinity(), 0.0, {}, {}};
  }
  const collision::SolidPair& pair = scan.pair(*closest);
  return {closest->distance, scan.time_s(*closest), pair.far_body->name, pair.near_body->name};
}

std::optional<Contact> Environment::contact_at(const std::array<double, 6>& q) const {
  PlanSample sample;
  sample.q = q;
  return first_contact(Plan({sample}, 0.0, {}));
}

void Environment::check(const Plan& plan) const {
  if (const std::optional<Contact> contact = first_contact(plan)) {
    throw MotionError(MotionErrorCode::kCollision, text_of(impl_->scene, *contact), 0,
                      contact->time_s);
  }
}

}  // namespace kelvara
