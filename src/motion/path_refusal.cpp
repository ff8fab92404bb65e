#include "motion/path_refusal.hpp"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

#include "kinematics/inverse_kinematics.hpp"

#include "description/classic_stream.hpp"

namespace kelvara::motion {
namespace {

using description::JointLimits;

constexpr int kChecksPerCurve = 8;
constexpr double kLimitTolerance = 1e-9;  // rad
// Of the tool's speed: where the joints hold it below this, next to a singularity, it is refused.
constexpr double kCrawl = 0.01;
// Smallest singular value (m/rad and rad/rad) below which a configuration counts as singular.
constexpr double kSingular = 0.01;
// Of the path's length: how far beyond its last reachable point a path is looked at.
constexpr double kBeyond = 1e-3;

std::string text_of(const PathPlace& place) {
  description::ClassicStream text;
  text.precision(3);
  text << "at " << std::round(100.0 * place.fraction) << " % of segment " << place.segment << ", "
       << place.distance << (place.in_place ? " rad" : " m");
  return text.str();
}

kinematics::Frame frame_at(const ToolPath& tool, double s) {
  const ToolPoint point = tool.at(s);
  return {point.rotation, point.position.value};
}

/// A joint beyond its limit.
struct Violation {
  double s = 0.0;
  std::size_t joint = 0;
  double limit = 0.0;   // rad
  double excess = 0.0;  // rad
};

/// How far a joint lies beyond its limits, which contain the start.
double excess_of(const JointLimits& limits, const JointArray& start, std::size_t joint, double q) {
  return std::abs(q - limits.clamp_from(joint, start[joint], q));
}

/// The joint that leaves its limits first, with its largest excess on the whole path.
std::optional<Violation> find_violation(const JointPath& path, const JointLimits& limits) {
  const JointArray& start = path.knots().front().q;
  std::optional<Violation> found;
  for (std::size_t k = 1; k < path.knots().size(); ++k) {
    const double begin = path.knots()[k - 1].s;
    const double step = (path.knots()[k].s - begin) / kChecksPerCurve;
    for (int n = 1; n <= kChecksPerCurve; ++n) {
      const JointArray q = path.at(begin + n * step).q;
      for (std::size_t i = 0; i < kJointCount; ++i) {
        const double excess = excess_of(limits, start, i, q[i]);
        if (!found && excess > kLimitTolerance) {
          found = {begin + n * step, i, limits.clamp_from(i, start[i], q[i]), excess};
        } else if (found && found->joint == i) {
          found->excess = std::max(found->excess, excess);
        }
      }
    }
  }
  return found;
}

/// Why the tool cannot be where the path ends or goes on; nothing when it can.
std::optional<MotionError> pose_refusal(const RobotKinematics& model,
                                        const kinematics::Frame& target, const JointArray& near) {
  try {
    kinematics::inverse_kinematics(model).solve(target, near);
  } catch (const MotionError& error) {
    return error;
  }
  return std::nullopt;
}

[[noreturn]] void refuse_violation(const RobotKinematics& model, const ToolPath& tool,
                                   const Violation& violation, const JointArray& last,
                                   const JointLimits& limits) {
  const auto joint = static_cast<int>(violation.joint) + 1;
  description::ClassicStream text;
  text << "joint " << joint << " would leave its range " << text_of(tool.place(violation.s))
       << ": the path needs it " << violation.excess << " rad beyond its limit of "
       << violation.limit << " rad";
  const bool ends_outside = limits.clamp_to_urdf_joint_limit(
                                violation.joint, last[violation.joint]) != last[violation.joint];
  if (ends_outside && !pose_refusal(model, frame_at(tool, tool.length()), last)) {
    text << "; another configuration of the arm reaches the end of the path";
    throw MotionError(MotionErrorCode::kBranchChange, text.str(), joint);
  }
  throw MotionError(MotionErrorCode::kJointLimit, text.str(), joint);
}

/// For a path that Newton steps cannot follow beyond `last`.
[[noreturn]] void refuse_end(const RobotKinematics& model, const ToolPath& tool,
                             const PathKnot& last) {
  const std::string place = text_of(tool.place(last.s));
  const double beyond = std::min(last.s + kBeyond * tool.length(), tool.length());
  if (const auto error = pose_refusal(model, frame_at(tool, beyond), last.q)) {
    if (error->code() == MotionErrorCode::kOutOfReach) {
      throw MotionError(error->code(), "the path leaves the arm's reach " + place);
    }
  }
  if (!pose_refusal(model, frame_at(tool, tool.length()), last.q)) {
    throw MotionError(MotionErrorCode::kBranchChange,
                      "the path cannot be followed without a jump to another configuration of the "
                      "arm " +
                          place);
  }
  throw MotionError(MotionErrorCode::kSingularity,
                    "the path runs into a singular configuration of the arm " + place);
}

}  // namespace

void check_solution(const RobotKinematics& model, const ToolPath& tool,
                    const PathSolution& solution, const JointLimits& limits) {
  const PathKnot& last = solution.knots.back();
  if (solution.knots.size() > 1) {
    if (const auto violation = find_violation(JointPath(solution.knots), limits)) {
      refuse_violation(model, tool, *violation, last.q, limits);
    }
  }
  if (!solution.complete) {
    refuse_end(model, tool, last);
  }
}

void check_singularities(const RobotKinematics& model, const ToolPath& tool, const JointPath& path,
                         const PathLimits& limits) {
  const kinematics::SixJointChain& chain = kinematics::six_joint_chain(model);
  for (const PathLimits::Obstacle& obstacle : limits.obstacles(kCrawl)) {
    if (smallest_singular_value(chain, path.at(obstacle.s).q) < kSingular) {
      throw MotionError(MotionErrorCode::kSingularity,
                        "the path passes a singular configuration of the arm faster than joint " +
                            std::to_string(obstacle.joint) + " can " +
                            text_of(tool.place(obstacle.s)),
                        obstacle.joint);
    }
  }
}

}  // namespace kelvara::motion
