#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>

#include "kelvara/collision/environment.hpp"
#include "kelvara/motion/planner.hpp"

#include "description/finite.hpp"
#include "fuzz/calls.hpp"

namespace fuzz {
namespace {

using kelvara::Contact;
using kelvara::Environment;
using kelvara::Plan;
using kelvara::PlanSample;
using kelvara::Pose;
using kelvara::description::all_finite;

// What the check may miss, and how far it may misjudge a deep overlap, m.
constexpr double kResolution = 1.2e-4;
constexpr double kDepthError = 2e-3;

Plan rest_at(const kelvara::JointArray& q) { return Plan({PlanSample{q, {}, {}}}, 0.0, {}); }

Pose take_place(Input& input) {
  Pose pose;
  for (std::size_t i = 0; i < 3; ++i) {
    pose.position[i] = input.choose(16) == 0 ? input.number() : input.everyday_number() / 8.0;
    pose.rpy[i] = input.choose(16) == 0 ? input.number() : input.everyday_number();
  }
  return pose;
}

double take_size(Input& input) {
  return input.choose(16) == 0 ? input.number() : std::abs(input.everyday_number()) / 16.0;
}

void add_body(Input& input, Environment& environment, const std::string& name) {
  const Pose pose = take_place(input);
  const double a = take_size(input), b = take_size(input), c = take_size(input);
  switch (input.choose(5)) {
    case 0:
      return environment.add_box(name, {a, b, c}, pose);
    case 1:
      return environment.add_sphere(name, a, pose.position);
    case 2:
      return environment.add_capsule(name, a, b, pose);
    case 3:
      return environment.attach_box(name, {a, b, c}, pose);
    default:
      environment.set_floor(pose.position[2]);
  }
}

Environment take_environment(Input& input) {
  static const Environment bare(model());
  Environment environment = bare;
  for (unsigned left = input.choose(3); left > 0; --left) {
    try {
      add_body(input, environment, "body " + std::to_string(left));
    } catch (const std::invalid_argument&) {
      continue;
    }
  }
  return environment;
}

bool is_refused(const Environment& environment, const Plan& plan) {
  try {
    environment.check(plan);
    return false;
  } catch (const kelvara::MotionError& error) {
    require(error.code() == kelvara::MotionErrorCode::kCollision, "a contact is a collision");
    return true;
  }
}

void check_contact(const Contact& contact, const Plan& plan) {
  require(contact.time_s >= 0.0 && contact.time_s <= plan.duration_s(),
          "a contact lies within its plan");
  require(std::isfinite(contact.depth_m) && all_finite(contact.point), "a contact is finite");
  require(contact.first != contact.second, "two bodies touch");
}

/// Of a plan that passes: it touches nothing, or retreats from what it touches at its start.
void check_retreat(const Environment& environment, const Plan& plan, const Contact& start) {
  for (std::size_t k = 0; k < plan.samples().size(); k += 20) {
    const auto contact = environment.contact_at(plan.samples()[k].q);
    require(!contact || contact->depth_m <= start.depth_m + kDepthError,
            "a retreat does not press deeper");
  }
}

}  // namespace

void check_plans(Input& input) {
  static const kelvara::MotionPlanner planner(
      model(), kelvara::MotionLimits::from_settings(model().description_files().settings_path));
  const Environment environment = take_environment(input);
  const kelvara::JointArray from = take_configuration(input);
  kelvara::JointArray to = take_configuration(input);
  for (std::size_t j = 0; j < to.size(); ++j) {
    to[j] = from[j] + 0.2 * (to[j] - from[j]);  // a longer way would only cost time
  }
  const Plan plan = input.choose(4) == 0 ? rest_at(from) : planner.plan_joint(from, to);
  const std::optional<Contact> contact = environment.first_contact(plan);
  require(is_refused(environment, plan) == contact.has_value(), "a contact refuses the plan");
  const std::optional<Contact> start = environment.contact_at(from);
  const double closest = environment.clearance(plan).distance_m;
  if (contact) {
    check_contact(*contact, plan);
    require(closest <= 5e-4, "a plan with a contact has no clearance");
  } else if (start) {
    check_retreat(environment, plan, *start);
  } else {
    require(closest >= -kResolution, "a plan without contact has a clearance");
  }
}

}  // namespace fuzz
