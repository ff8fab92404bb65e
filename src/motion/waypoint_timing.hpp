#pragma once

#include <vector>

#include "motion/via_spline.hpp"

/// How long the segments of a motion through via points take.
namespace kelvara::motion {

/// The course through points as they are.
ViaSpline::Course plain_course(const std::vector<JointArray>& points);
/// The course that is straight in joint space from `part` (0 to 0.5) of every segment to its rest:
/// a joint can keep its velocity there, which suits motions that the velocity bounds.
ViaSpline::Course straight_course(const std::vector<JointArray>& points, double part);

/// By how much the segment that exceeds the limits most exceeds them; see `JointSegment::stretch`.
double largest_stretch(const ViaSpline& spline, const MotionLimits& limits);

/// Finds durations with which every segment keeps the limits and comes close to them.
/// @param weight Of the squared acceleration, times the squared mean duration of the segments.
ViaSpline find_timing(const ViaSpline::Course& course, const MotionLimits& limits, double weight);

/// The same motion, at most a little slower, at the points that matter at whole periods of a plan;
/// unchanged where that is not found.
ViaSpline align_slower(const ViaSpline::Course& course, const ViaSpline& spline,
                       const MotionLimits& limits);
/// The same motion with the points that matter at the nearest whole periods, in the same time.
ViaSpline align_nearest(const ViaSpline::Course& course, const ViaSpline& spline);

}  // namespace kelvara::motion
