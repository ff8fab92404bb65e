#include "motion/path_builder.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>

#include "description/finite.hpp"
#include "motion/path_refusal.hpp"
#include "motion/path_solution.hpp"
#include "motion/plan_checks.hpp"
#include "motion/tool_path.hpp"

namespace kelvara::motion {
namespace {

using kinematics::Frame;
using Kind = PathSegment::Kind;

constexpr double kNoMotion = 1e-10;  // m or rad: a shorter segment is left out
// A corner at which the direction turns by more than about 170 degrees is not rounded: the tool
// has to stop there in any case.
constexpr double kReversalCosine = -0.985;
constexpr double kMinRounding = 1e-6;  // m or rad: the motion stops at a tighter corner

// Lengths of larger coordinates could overflow; no arm reaches that far.
constexpr double kFarthest = 1e6;  // m

bool is_finite(const Pose& pose) {
  return description::all_finite(pose.position) && description::all_finite(pose.rpy);
}

bool is_near(const Pose& pose) {
  return std::all_of(pose.position.begin(), pose.position.end(),
                     [](double value) { return std::abs(value) < kFarthest; });
}

[[noreturn]] void refuse(std::size_t segment, const std::string& text) {
  throw std::invalid_argument("segment " + std::to_string(segment + 1) + ": " + text);
}

void check_segment(const PathSegment& segment, std::size_t number) {
  const bool is_joint = segment.kind == Kind::kJoint;
  const bool is_known = is_joint || segment.kind == Kind::kLinear || segment.kind == Kind::kArc;
  const bool has_end = is_joint ? description::all_finite(segment.joints) : is_finite(segment.end);
  const bool has_via = segment.kind != Kind::kArc || description::all_finite(segment.via.position);
  if (!is_known || !has_end || !has_via) {
    refuse(number, "its points must be finite");
  }
  if (!(segment.blend >= 0.0) || !std::isfinite(segment.blend)) {
    refuse(number, "its blend must be finite and not negative");
  }
  if (!is_joint && !(is_near(segment.end) && is_near(segment.via))) {
    throw MotionError(MotionErrorCode::kOutOfReach,
                      "segment " + std::to_string(number + 1) + " leads out of the arm's reach");
  }
}

void check_segments(const std::vector<PathSegment>& segments) {
  for (std::size_t k = 0; k < segments.size(); ++k) {
    check_segment(segments[k], k);
    const bool changes_space =
        k + 1 < segments.size() &&
        (segments[k].kind == Kind::kJoint) != (segments[k + 1].kind == Kind::kJoint);
    if (changes_space && segments[k].blend > 0.0) {
      refuse(k, "a corner between a joint segment and a line or arc cannot be rounded");
    }
  }
}

/// How far from the corner between two whole segments its rounding begins; 0: it is not rounded.
double rounding_of(const ToolPiece& before, double before_length, const ToolPiece& after,
                   double blend) {
  if (before.in_place() || after.in_place()) {
    return 0.0;
  }
  const kinematics::Vector3 in = before.at(before.length()).position.first;
  const kinematics::Vector3 out = after.at(0.0).position.first;
  const double rounding = std::min(blend, 0.5 * std::min(before_length, after.length()));
  return kinematics::dot(in, out) < kReversalCosine || rounding < kMinRounding ? 0.0 : rounding;
}

}  // namespace

PathBuilder::PathBuilder(const RobotKinematics& model, const MotionLimits& limits,
                         const std::vector<PathSegment>& segments)
    : model_(model),
      chain_(kinematics::six_joint_chain(model)),
      joint_limits_(joint_limits_of(model)),
      limits_(limits),
      segments_(segments) {
  check_segments(segments);
}

std::vector<PathRun> PathBuilder::build(const JointArray& start) {
  q_ = start;
  while (next_ < segments_.size()) {
    is_joint() ? add_joint_run() : add_tool_run();
  }
  return std::move(runs_);
}

void PathBuilder::add_joint_run() {
  std::vector<JointArray> points{q_};
  std::vector<double> roundings;
  double rounding = 0.0;
  do {
    const PathSegment& segment = segments_[next_];
    check_target(segment.joints, joint_limits_);
    if (joint_distance(points.back(), segment.joints) > kNoMotion) {
      points.push_back(segment.joints);
      roundings.push_back(segment.blend);
    }
    rounding = segment.blend;
    ++next_;
  } while (rounding > kMinRounding && next_ < segments_.size());
  if (points.size() > 1) {
    const JointPath path = straight_joint_path(points, roundings);
    runs_.push_back({path, PathLimits(path, nullptr, limits_)});
    q_ = points.back();
  }
}

Frame PathBuilder::end_of(std::size_t segment) const {
  return kinematics::frame_of(segments_[segment].end);
}

ToolPiece PathBuilder::piece_from(const Frame& from) const {
  const PathSegment& segment = segments_[next_];
  const auto number = static_cast<int>(next_) + 1;
  if (segment.kind == Kind::kLinear) {
    return ToolPiece::line(from, end_of(next_), number);
  }
  const auto& [x, y, z] = segment.via.position;
  return ToolPiece::arc(from, {x, y, z}, end_of(next_), number);
}

void PathBuilder::add_tool_run() {
  std::vector<ToolPiece> pieces{piece_from(chain_.tool_frame(q_))};
  double length = pieces.back().length();  // of the whole last segment
  for (++next_; next_ < segments_.size() && segments_[next_ - 1].blend > 0.0; ++next_) {
    ToolPiece after = piece_from(end_of(next_ - 1));
    const double whole = after.length();
    const double rounding = rounding_of(pieces.back(), length, after, segments_[next_ - 1].blend);
    if (rounding == 0.0) {
      break;
    }
    const ToolPiece corner = ToolPiece::rounding(pieces.back(), after, rounding);
    pieces.push_back(corner);
    pieces.push_back(after);
    length = whole;
  }
  pieces.erase(std::remove_if(pieces.begin(), pieces.end(),
                              [](const ToolPiece& piece) { return piece.length() < kNoMotion; }),
               pieces.end());
  if (pieces.empty()) {
    return;
  }
  const ToolPath tool(std::move(pieces));
  const PathSolution solution = solve_path(chain_, tool, q_);
  check_solution(model_, tool, solution, joint_limits_);
  const JointPath path(solution.knots);
  const PathLimits limits(path, &tool, limits_);
  check_singularities(model_, tool, path, limits);
  runs_.push_back({path, limits});
  q_ = path.knots().back().q;
}

}  // namespace kelvara::motion
