#include "simulation/simulated_arm/contact_model.hpp"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <stdexcept>

#include "simulation/simulated_arm/jaw_linkage.hpp"
#include "simulation/simulated_arm/model_text.hpp"
#include "simulation/simulated_arm/motor_facts.hpp"

namespace kelvara::simulation {
namespace {

constexpr double kJawMass = 1e-6;          // kg; the payload has the gripper's mass
constexpr double kFingerTolerance = 1e-6;  // m, between a finger and the other one's mirror image

// Contacts: nearly rigid, without creep in friction. A body's own friction takes precedence over
// the arm's and the table's; it has rolling friction, without which a ball would never rest.
constexpr char kOptions[] =
    " cone='elliptic' impratio='10' noslip_iterations='3'/>"
    "<default><geom condim='4' friction='0.8 0.005 0.0001' solref='0.004 1' "
    "solimp='0.98 0.999 0.001'/></default>";
constexpr char kStiffStop[] = " solreflimit='0.002 1' solimplimit='0.99 0.999 0.0001'";
constexpr char kStiffLink[] = " solref='0.002 1' solimp='0.99 0.999 0.0001'";

std::string half_extents(const Solid& solid) {
  const Triple& size = solid.size;
  if (solid.shape == Solid::Shape::kBox) {
    return numbers(Triple{size[0] / 2.0, size[1] / 2.0, size[2] / 2.0});
  }
  return numbers(Triple{size[0], size[1] / 2.0, 0.0});
}

/// A geom of this shape, still open for more attributes.
std::string shape_of(const Solid& solid) {
  const char* const type = solid.shape == Solid::Shape::kBox      ? "box"
                           : solid.shape == Solid::Shape::kSphere ? "sphere"
                                                                  : "cylinder";
  return std::string("<geom type='") + type + "' size='" + half_extents(solid) + "'";
}

std::string place_of(const Solid& solid) {
  return " pos='" + numbers(solid.origin) + "' euler='" + numbers(solid.rpy) + "'";
}

std::string body_of(const Body& body) {
  const int dimensions = body.solid.shape == Solid::Shape::kBox ? 4 : 6;
  std::ostringstream out;
  out << "<body name='" << kBodyPrefix << body.name << "'" << place_of(body.solid) << ">"
      << (body.mass > 0.0 ? "<freejoint/>" : "") << shape_of(body.solid);
  if (body.mass > 0.0) {
    out << " mass='" << body.mass << "'";
  }
  out << " priority='1' condim='" << dimensions << "' friction='" << body.friction
      << " 0.005 0.0001'/></body>";
  return out.str();
}

/// One jaw: the finger on a slide, at its inner face when closed.
std::string jaw_of(const Solid& finger, const char* name) {
  const double side = std::copysign(1.0, finger.origin[1]);
  const double ratio = jaw_ratio_at(kJawClosedAngle);
  std::ostringstream out;
  out << "<body name='" << name << "' pos='"
      << numbers(Triple{finger.origin[0], side * finger.size[1] / 2.0, finger.origin[2]})
      << "'><joint name='" << name << "' type='slide' axis='0 " << side
      << " 0' limited='true' range='0 " << jaw_stroke_at(kJawOpenAngle) << "'" << kStiffStop
      << " armature='" << kJaws.inertia / (2.0 * ratio * ratio) << "'/><inertial mass='" << kJawMass
      << "' pos='0 0 0' diaginertia='"
      << numbers(Triple{kPointInertia, kPointInertia, kPointInertia}) << "'/>" << shape_of(finger)
      << "/></body>";
  return out.str();
}

}  // namespace

ContactModel::ContactModel(const RobotDescription& description, const Contacts* contacts)
    : description_(description), contacts_(contacts) {
  if (contacts_ == nullptr) {
    return;
  }
  const auto require_shapes = [](const LinkDescription& link) {
    if (!link.solids_error.empty()) {
      throw std::runtime_error("contacts need the URDF's shapes: " + link.solids_error);
    }
  };
  require_shapes(description_.base);
  for (const JointDescription& joint : description_.joints) {
    require_shapes(joint.child);
  }
  if (contacts_->moving_jaws) {
    find_fingers();
  }
}

/// The fingers are two equal boxes beside the tool, each the other's mirror image.
void ContactModel::find_fingers() {
  const std::vector<Solid>& solids = description_.joints.back().child.solids;
  for (std::size_t left = 0; left < solids.size(); ++left) {
    for (std::size_t right = 0; right < solids.size(); ++right) {
      const Solid& a = solids[left];
      const Solid& b = solids[right];
      if (a.origin[1] > a.size[1] / 2.0 && a.size == b.size &&
          std::abs(a.origin[1] + b.origin[1]) < kFingerTolerance && is_finger(left) &&
          is_finger(right)) {
        fingers_ = {left, right};
        return;
      }
    }
  }
  throw std::runtime_error("contacts need two fingers in the URDF: equal boxes beside the tool");
}

bool ContactModel::is_finger(std::size_t solid) const {
  const Solid& box = description_.joints.back().child.solids[solid];
  const Triple& tool = description_.tool;
  return box.shape == Solid::Shape::kBox && box.rpy == Triple{} &&
         std::abs(box.origin[0] - tool[0]) <= box.size[0] / 2.0 &&
         std::abs(box.origin[2] - tool[2]) <= box.size[2] / 2.0;
}

/// Buffers for the most contacts that a heap of the free bodies has.
std::string ContactModel::options() const {
  if (contacts_ == nullptr) {
    return "/>";
  }
  const std::vector<Body>& bodies = contacts_->scene.bodies;
  const auto moving =
      std::count_if(bodies.begin(), bodies.end(), [](const Body& body) { return body.mass > 0.0; });
  std::ostringstream out;
  out << kOptions << "<size nconmax='" << 60 + 22 * moving << "' njmax='" << 300 + 110 * moving
      << "'/>";
  return out.str();
}

std::string ContactModel::base() const {
  if (contacts_ == nullptr) {
    return "";
  }
  std::string text = "<body name='base'>";
  for (const Solid& solid : description_.base.solids) {
    text += shape_of(solid) + place_of(solid) + "/>";
  }
  return text + "</body>";
}

std::string ContactModel::link(std::size_t index) const {
  std::string text;
  if (contacts_ == nullptr) {
    return text;
  }
  const std::vector<Solid>& solids = description_.joints[index].child.solids;
  const bool has_jaws = contacts_->moving_jaws && index + 1 == description_.joints.size();
  for (std::size_t i = 0; i < solids.size(); ++i) {
    if (!has_jaws || (i != fingers_[0] && i != fingers_[1])) {
      text += shape_of(solids[i]) + place_of(solids[i]) + "/>";
    }
  }
  return text;
}

std::string ContactModel::jaws() const {
  if (contacts_ == nullptr || !contacts_->moving_jaws) {
    return "";
  }
  const std::vector<Solid>& solids = description_.joints.back().child.solids;
  return jaw_of(solids[fingers_[0]], kLeftJawName) + jaw_of(solids[fingers_[1]], kRightJawName);
}

std::string ContactModel::scene() const {
  std::ostringstream out;
  if (contacts_ != nullptr && contacts_->scene.table) {
    const Table& table = *contacts_->scene.table;
    out << "<geom type='plane' size='0 0 1' pos='0 0 " << table.height << "' friction='"
        << table.friction << " 0.005 0.0001'/>";
  }
  if (contacts_ != nullptr) {
    for (const Body& body : contacts_->scene.bodies) {
      out << body_of(body);
    }
  }
  return out.str();
}

/// Links that a joint connects overlap by design; MuJoCo leaves out all such pairs but the base's.
/// The jaws move together.
std::string ContactModel::constraints() const {
  if (contacts_ == nullptr) {
    return "";
  }
  const std::string exclude_base = "<exclude body1='base' body2='link1'/>";
  if (!contacts_->moving_jaws) {
    return "<contact>" + exclude_base + "</contact>";
  }
  const std::string left = kLeftJawName;
  const std::string right = kRightJawName;
  return "<contact>" + exclude_base + "<exclude body1='" + left + "' body2='" + right +
         "'/></contact><equality><joint joint1='" + left + "' joint2='" + right +
         "' polycoef='0 1 0 0 0'" + kStiffLink + "/></equality>";
}

}  // namespace kelvara::simulation
