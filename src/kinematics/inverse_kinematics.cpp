#include "kinematics/inverse_kinematics.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <limits>

#include "kelvara/motion_error.hpp"
#include "kinematics/closed_form_ik.hpp"
#include "kinematics/pose_newton.hpp"
#include "kinematics/pose_search.hpp"

#include "description/classic_stream.hpp"

namespace kelvara::kinematics {
namespace {

constexpr double kExactAngle = 1e-13;     // rad; a geometry that is off by rounding alone
constexpr double kExactDistance = 1e-13;  // m
constexpr double kLimitRounding = 1e-10;  // rad
constexpr double kPolishedError = 1e-12;  // m and rad; a larger one is refined
constexpr int kPolishSteps = 3;
constexpr int kSeedSteps = 16;
constexpr double kPromisingError = 1e-5;  // m and rad; worth as many steps again
constexpr double kSeedMargin = 0.3;       // rad beyond the limits
// Times the errors of the geometry; the second one where the first leads nowhere.
constexpr std::array kSeedSlacks{2.5, 12.0};

/// Takes the solutions of an exact geometry. What was not clamped is exact to rounding.
struct Exact final : CandidateSink {
  Exact(const SixJointChain& c, const Frame& t, const JointRanges& r)
      : chain(c), target(t), ranges(r) {}

  bool take(const Candidate& candidate) override {
    JointArray q = candidate.q;
    if ((candidate.clamped || candidate.free) && !polish(q)) {
      return false;
    }
    found.add(q, candidate.free);
    return true;
  }

  bool polish(JointArray& q) const {
    if (pose_error(chain, target, q) < kPolishedError) {
      return true;
    }
    refine(chain, target, q, kPolishSteps);
    return fit(ranges, q, kLimitRounding) && pose_error(chain, target, q) < kReachedError;
  }

  const SixJointChain& chain;
  const Frame& target;
  const JointRanges& ranges;
  PoseSolutions found;
};

/// Takes seeds, which Newton steps bring onto the pose.
struct Seeds final : CandidateSink {
  Seeds(const SixJointChain& c, const Frame& t, const JointRanges& r)
      : chain(c), target(t), ranges(r) {}

  bool take(const Candidate& candidate) override {
    ++seeds;
    JointArray q = candidate.q;
    double error = refine(chain, target, q, kSeedSteps);
    if (error > kPolishedError && error < kPromisingError) {
      error = refine(chain, target, q, kSeedSteps);
    }
    if (!(error < kReachedError) || !fit(ranges, q, kLimitRounding)) {
      return false;
    }
    found.add(q, candidate.free && is_singular(chain, q, 1e-12));
    return true;
  }

  const SixJointChain& chain;
  const Frame& target;
  const JointRanges& ranges;
  PoseSolutions found;
  int seeds = 0;
};

ClosedFormTolerance seed_tolerance(const ParallelAxesGeometry& geometry, double slack) {
  const double reach = norm(geometry.upper_arm) + norm(geometry.forearm);
  ClosedFormTolerance tolerance;
  tolerance.seeds = true;
  tolerance.distance =
      slack * (geometry.distance_error + geometry.angle_error * reach) + kLimitRounding;
  tolerance.angle =
      slack * (geometry.angle_error + geometry.distance_error / reach) + kLimitRounding;
  tolerance.range = kSeedMargin;
  return tolerance;
}

double squared_distance(const JointArray& a, const JointArray& b) {
  double sum = 0.0;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    sum += (a[j] - b[j]) * (a[j] - b[j]);
  }
  return sum;
}

std::string limit_text(const JointRange& range, const Excess& excess) {
  const char* unit = range.prismatic ? " m" : " rad";
  description::ClassicStream text;
  text << std::fixed << std::setprecision(4) << "the pose needs joint " << excess.joint + 1
       << " at " << excess.angle << unit << ", " << excess.by << unit << " beyond its limit of "
       << (excess.angle < range.lower ? range.lower : range.upper) << unit;
  return text.str();
}

std::string reach_text(const Frame& target) {
  const Pose pose = pose_of(target);
  description::ClassicStream text;
  text << std::fixed << std::setprecision(4) << "no joint angles reach the pose at ("
       << pose.position[0] << ", " << pose.position[1] << ", " << pose.position[2]
       << ") m with roll, pitch and yaw of (" << pose.rpy[0] << ", " << pose.rpy[1] << ", "
       << pose.rpy[2] << ") rad";
  return text.str();
}

}  // namespace

InverseKinematics::InverseKinematics(const SixJointChain& chain)
    : chain_(chain), geometry_(parallel_axes_geometry(chain)) {
  std::transform(chain.ranges().begin(), chain.ranges().end(), middle_.begin(),
                 [](const JointRange& range) { return range.middle(); });
  if (geometry_) {
    const bool exact =
        geometry_->angle_error < kExactAngle && geometry_->distance_error < kExactDistance;
    method_ = exact ? Method::kClosedForm : Method::kClosedFormSeeds;
  }
}

PoseSolutions InverseKinematics::solutions(const Frame& target) const {
  return within(chain_.ranges(), target, middle_);
}

PoseSolutions InverseKinematics::solutions(const Frame& target, const JointArray& hint) const {
  return within(chain_.ranges(), target, hint);
}

PoseSolutions InverseKinematics::within(const JointRanges& ranges, const Frame& target,
                                        const JointArray& hint) const {
  if (method_ == Method::kSearch) {
    return search_pose(chain_, target, ranges, hint);
  }
  if (method_ == Method::kClosedForm) {
    Exact sink(chain_, target, ranges);
    ClosedFormIk(*geometry_, ranges, hint, {}).solve(target, sink);
    return sink.found;
  }
  bool promising = false;
  for (const double slack : kSeedSlacks) {
    Seeds sink(chain_, target, ranges);
    ClosedFormIk(*geometry_, ranges, hint, seed_tolerance(*geometry_, slack)).solve(target, sink);
    if (sink.found.count > 0) {
      return sink.found;
    }
    promising = sink.seeds > 0;
  }
  return promising ? search_pose(chain_, target, ranges, hint) : PoseSolutions{};
}

std::optional<JointArray> InverseKinematics::nearest(const Frame& target,
                                                     const JointArray& near) const {
  const PoseSolutions found = solutions(target, near);
  std::optional<JointArray> best;
  double least = std::numeric_limits<double>::infinity();
  for (int k = 0; k < found.count; ++k) {
    JointArray q = found.q[k];
    for (std::size_t j = 0; j < kJointCount; ++j) {
      q[j] = chain_.ranges()[j].turned_towards(q[j], near[j]);
    }
    const double distance = squared_distance(q, near);
    if (distance < least) {
      least = distance;
      best = q;
    }
  }
  return best;
}

JointArray InverseKinematics::solve(const Frame& target, const JointArray& near) const {
  const std::optional<JointArray> q = nearest(target, near);
  return q ? *q : solve_beyond_limits(target, near);
}

JointArray InverseKinematics::solve_beyond_limits(const Frame& target,
                                                  const JointArray& near) const {
  JointRanges unlimited;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    unlimited[j].prismatic = chain_.ranges()[j].prismatic;
  }
  const PoseSolutions all = within(unlimited, target, near);
  if (all.count == 0) {
    throw MotionError(MotionErrorCode::kOutOfReach, reach_text(target));
  }
  Excess least{0, 0.0, std::numeric_limits<double>::infinity()};
  for (int k = 0; k < all.count; ++k) {
    JointArray q = all.q[k];
    if (fit(chain_.ranges(), q, kLimitRounding)) {
      return q;  // only Newton steps from other seeds led there
    }
    const Excess excess = largest_excess(chain_.ranges(), q);
    least = excess.by < least.by ? excess : least;
  }
  throw MotionError(MotionErrorCode::kJointLimit, limit_text(chain_.ranges()[least.joint], least),
                    static_cast<int>(least.joint) + 1);
}

}  // namespace kelvara::kinematics
