#include "motion/plan_checks.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include "description/classic_stream.hpp"
#include "description/finite.hpp"

namespace kelvara::motion {
namespace {

// Relative; a plan may be asked for the duration that an error text or a plan gave.
constexpr double kDurationTolerance = 1e-9;

bool none_negative(const JointArray& values) {
  return std::all_of(values.begin(), values.end(), [](double value) { return value >= 0.0; });
}

bool all_positive(const JointArray& values) {
  return description::all_finite(values) &&
         std::all_of(values.begin(), values.end(), [](double value) { return value > 0.0; });
}

[[noreturn]] void refuse(const std::string& text) {
  throw std::invalid_argument("MotionPlanner: " + text);
}

}  // namespace

description::JointLimits joint_limits_of(const RobotKinematics& model) {
  if (model.num_joints() != static_cast<int>(kJointCount) ||
      model.joint_lower().size() != kJointCount) {
    refuse("the model must have six moving joints");
  }
  description::JointLimits limits;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    limits.urdf_lower[i] = model.joint_lower()[i];
    limits.urdf_upper[i] = model.joint_upper()[i];
    limits.urdf_has_limit[i] = model.joint_has_limits()[i];
  }
  return limits;
}

void check_limits(const MotionLimits& limits) {
  const JointArray tool{
      limits.tool_speed,         limits.tool_acceleration,         limits.tool_jerk,
      limits.tool_angular_speed, limits.tool_angular_acceleration, limits.tool_angular_jerk};
  if (!all_positive(limits.velocity) || !all_positive(limits.acceleration) ||
      !all_positive(limits.jerk) || !all_positive(tool)) {
    refuse("the limits must be finite and positive");
  }
  if (!none_negative(limits.torque)) {
    refuse("the torque limits must not be negative or NaN");
  }
  for (const JointArray& drives :
       {limits.rotor_inertia, limits.viscous_friction, limits.coulomb_friction}) {
    if (!description::all_finite(drives) || !none_negative(drives)) {
      refuse("the inertia and the friction of the drives must be finite and not negative");
    }
  }
}

void check_start(const JointArray& start) {
  if (!description::all_finite(start)) {
    refuse("the start must be finite");
  }
}

void check_start(const PlanSample& start) {
  check_start(start.q);
  check_start(start.dq);
  check_start(start.ddq);
}

void check_options(const PlanOptions& options) {
  if (!(options.duration_s >= 0.0) || !std::isfinite(options.duration_s)) {
    refuse("the duration must be finite and not negative");
  }
}

void check_course(std::size_t points) {
  if (points == 0) {
    refuse("there is no point to move to");
  }
}

void check_target(const JointArray& target, const description::JointLimits& limits) {
  if (!description::all_finite(target)) {
    refuse("the target must be finite");
  }
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double nearest = limits.clamp_to_urdf_joint_limit(i, target[i]);
    if (nearest != target[i]) {
      description::ClassicStream text;
      text << "joint " << i + 1 << ": the target " << target[i] << " rad lies beyond the limit "
           << nearest << " rad";
      throw MotionError(MotionErrorCode::kJointLimit, text.str(), static_cast<int>(i) + 1);
    }
  }
}

void check_duration(const PlanOptions& options, double shortest_s) {
  if (options.duration_s > 0.0 && options.duration_s < shortest_s * (1.0 - kDurationTolerance)) {
    description::ClassicStream text;
    text << "a duration of " << options.duration_s << " s is too short: the limits allow "
         << shortest_s << " s at best";
    throw MotionError(MotionErrorCode::kDurationTooShort, text.str(), 0, shortest_s);
  }
}

}  // namespace kelvara::motion
