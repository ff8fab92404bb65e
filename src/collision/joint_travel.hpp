#pragma once

#include "kelvara/motion/plan.hpp"

#include "description/joint_array.hpp"

namespace kelvara::collision {

/// Upper bounds of the joints' motion between two samples of a plan.
struct JointTravel {
  JointArray whole{};  // rad, from the first to the second, back and forth added up
  JointArray rate{};   // rad per interval: the largest speed in it times its duration
};

/// Bounds the polynomials of `Plan::at` by their Bézier control polygons.
/// @param period_s Time between the samples, s.
JointTravel travel_between(const PlanSample& from, const PlanSample& to, double period_s);

}  // namespace kelvara::collision
