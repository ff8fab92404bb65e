#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kelvara/export.hpp"
#include "kelvara/motion/plan.hpp"
#include "kelvara/motion/plan_check.hpp"
#include "kelvara/pose.hpp"

class RobotKinematics;

namespace kelvara {

/// Two bodies that touch, or that come closer than the margin.
struct Contact {
  double time_s = 0.0;            // from the plan's start
  std::string first;              // the body farther from the base: a link or a carried body
  std::string second;             // a link, a body or "floor"
  double depth_m = 0.0;           // of the overlap; negative: the gap that remains
  std::array<double, 3> point{};  // between the two where they are closest, base frame, m
};

/// Where a plan passes closest to something.
struct Clearance {
  double distance_m = 0.0;  // negative: depth of the overlap; infinite when nothing is checked
  double time_s = 0.0;      // from the plan's start
  std::string first;        // the two bodies, as in `Contact`
  std::string second;
};

/// What the arm can collide with: its own links, a floor, bodies around it and bodies that the tool
/// carries. Links have the collision solids of the URDF file: boxes, cylinders and spheres.
///
/// Checked are the pairs of bodies that the arm moves relative to each other, except those whose
/// contact is allowed. Allowed at first are links on both sides of one joint, and pairs of links
/// that touch in every one of 200 configurations spread over the joint limits.
///
/// A plan is followed in steps that are shorter than the distance to the next contact, so a thin
/// body cannot be passed between two samples. Only an overlap of less than 0.1 mm can be missed.
///
/// A plan of several samples may start in a contact, so that the arm can retreat from it: two
/// bodies that touch at the start may touch until they have separated (by 0.1 mm), unless the plan
/// brings them more than 0.1 mm closer together than at its start. Sliding along a surface without
/// pressing deeper is allowed too. After they have separated they must not touch again.
///
/// Metres and radians; poses in the base frame. A value: a copy is independent, and the model may
/// end before the environment. Const calls may run on any threads at once; an edit must not overlap
/// any other call. To change what a controller checks against, edit a copy and pass that.
class KELVARA_EXPORT Environment : public PlanCheck {
 public:
  /// Reads the links' collision solids from the model's URDF file.
  /// @throws std::invalid_argument unless the model has six moving joints, all of them rotating.
  /// @throws std::runtime_error for a file that cannot be read, has a collision mesh (or another
  ///         shape than box, cylinder and sphere) or no collision solid on a moving link.
  explicit Environment(const RobotKinematics& model);
  Environment(const Environment& other);
  Environment(Environment&& other) noexcept;
  Environment& operator=(const Environment& other);
  Environment& operator=(Environment&& other) noexcept;
  ~Environment() override;

  // ---- What stands around the arm ----
  // Names are unique among links and bodies, not empty and not "floor". Every function throws
  // std::invalid_argument for a name that breaks this or that is unknown, for values that are not
  // finite, for sizes that are not positive and for lengths above 1000 m; the environment is
  // unchanged then.

  /// Everything below this height is solid. It replaces an earlier floor; its name is "floor".
  void set_floor(double z);
  /// @param size Edge lengths, along the axes of `pose`, whose position is the centre.
  void add_box(const std::string& name, const std::array<double, 3>& size, const Pose& pose);
  void add_sphere(const std::string& name, double radius, const std::array<double, 3>& position);
  /// @param length Distance of the centres of both caps, along the z axis of `pose`.
  void add_capsule(const std::string& name, double radius, double length, const Pose& pose);
  /// Removes a body, a carried one included, or the floor, and what was allowed for it.
  void remove(const std::string& name);
  /// Adds a box that moves with the tool.
  /// @param pose Of the box, in the tool frame.
  void attach_box(const std::string& name, const std::array<double, 3>& size, const Pose& pose);
  /// Removes a carried body. @throws std::invalid_argument also for a body that is not carried.
  void detach(const std::string& name);

  // ---- What counts as a contact ----

  /// Ends the check of two bodies: links, bodies or "floor".
  void allow_contact(const std::string& first, const std::string& second);
  /// Checks two bodies again, the links included that are allowed at first.
  void forbid_contact(const std::string& first, const std::string& second);
  /// The pairs whose contact is allowed, in alphabetical order.
  std::vector<std::pair<std::string, std::string>> allowed_contacts() const;
  /// Distance below which bodies count as touching, 0 at first. Two links of the arm always count
  /// by contact alone.
  void set_margin(double metres);

  // ---- Checks ----
  // A plan without samples throws std::invalid_argument.

  /// The first contact of a plan, for bodies that touch at its start as described above. Its depth
  /// is the largest of these two bodies from then on until they separate.
  std::optional<Contact> first_contact(const Plan& plan) const;
  /// The smallest distance over a plan, at most 0.5 mm too large.
  Clearance clearance(const Plan& plan) const;
  /// The deepest contact at these joint angles, as `first_contact` of a plan of this one sample.
  std::optional<Contact> contact_at(const std::array<double, 6>& q) const;
  /// @throws MotionError of `kCollision` with the bodies, the time and the depth of the first
  ///         contact, for example "link6 touches 'table' 0.84 s after the start, 3.2 mm deep".
  void check(const Plan& plan) const override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kelvara
