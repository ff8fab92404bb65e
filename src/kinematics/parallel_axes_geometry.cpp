#include "kinematics/parallel_axes_geometry.hpp"

#include <algorithm>
#include <array>

namespace kelvara::kinematics {
namespace {

constexpr double kMaxAngleError = 0.03;     // rad
constexpr double kMaxDistanceError = 0.03;  // of the sum of both arms' lengths
constexpr double kMinSine = 0.05;           // between axes that must not be parallel
constexpr double kMinLength = 0.02;         // of either arm, of the sum of both

struct Line {
  Vector3 direction, point;
};

using Lines = std::array<Line, kJointCount>;

Lines axes_of(const SixJointChain& chain) {
  Lines lines;
  const auto frames = chain.joint_frames();
  for (std::size_t i = 0; i < kJointCount; ++i) {
    lines[i] = {frames[i].rotation.z, frames[i].position};
  }
  return lines;
}

bool any_prismatic(const SixJointChain& chain) {
  return std::any_of(chain.ranges().begin(), chain.ranges().end(),
                     [](const JointRange& range) { return range.prismatic; });
}

/// Sets the wrist centre: the middle of the shortest connection of axes 5 and 6.
void set_wrist(ParallelAxesGeometry& g, const Line& a, const Line& b) {
  const double cosine = dot(a.direction, b.direction);
  const Vector3 between = b.point - a.point;
  const double along_a = dot(a.direction, between);
  const double along_b = dot(b.direction, between);
  const double scale = 1.0 / (1.0 - cosine * cosine);
  const Vector3 on_a = a.point + scale * (along_a - cosine * along_b) * a.direction;
  const Vector3 on_b = b.point + scale * (cosine * along_a - along_b) * b.direction;
  g.wrist = 0.5 * (on_a + on_b);
  g.distance_error = norm(on_b - on_a);
  g.axis5 = a.direction;
  g.axis6 = b.direction;
  g.mark6 = normalized(cross(g.axis6, g.axis5));
  g.side6 = cross(g.axis6, g.mark6);
}

/// Sets the mean direction of axes 2, 3 and 4 and the coordinates of the plane.
void set_plane(ParallelAxesGeometry& g, const Lines& axes) {
  g.sign3 = dot(axes[1].direction, axes[2].direction) < 0.0 ? -1.0 : 1.0;
  g.sign4 = dot(axes[1].direction, axes[3].direction) < 0.0 ? -1.0 : 1.0;
  const std::array<Vector3, 3> directions{axes[1].direction, g.sign3 * axes[2].direction,
                                          g.sign4 * axes[3].direction};
  g.normal = normalized(directions[0] + directions[1] + directions[2]);
  for (const Vector3& direction : directions) {
    g.angle_error = std::max(g.angle_error, norm(cross(g.normal, direction)));
  }
  g.e1 = normalized(cross(g.normal, axes[0].direction));
  g.e2 = cross(g.normal, g.e1);
}

/// Where an axis meets the plane through the wrist centre, which keeps the effect of a small tilt
/// small.
Planar crossing(const ParallelAxesGeometry& g, const Line& axis) {
  const double along = dot(g.normal, g.wrist - axis.point) / dot(g.normal, axis.direction);
  return g.in_plane(axis.point + along * axis.direction);
}

void set_arms(ParallelAxesGeometry& g, const Lines& axes) {
  g.point2 = crossing(g, axes[1]);
  g.upper_arm = crossing(g, axes[2]) - g.point2;
  g.forearm = crossing(g, axes[3]) - crossing(g, axes[2]);
  g.wrist_to_axis4 = crossing(g, axes[3]) - g.in_plane(g.wrist);
}

bool is_usable(const ParallelAxesGeometry& g) {
  const double reach = norm(g.upper_arm) + norm(g.forearm);
  return norm(cross(g.normal, g.axis5)) > kMinSine &&
         g.distance_error < kMaxDistanceError * reach &&
         std::min(norm(g.upper_arm), norm(g.forearm)) > kMinLength * reach;
}

}  // namespace

std::optional<ParallelAxesGeometry> parallel_axes_geometry(const SixJointChain& chain) {
  const Lines axes = axes_of(chain);
  if (any_prismatic(chain) || norm(cross(axes[0].direction, axes[1].direction)) < kMinSine ||
      norm(cross(axes[4].direction, axes[5].direction)) < kMinSine) {
    return std::nullopt;
  }
  ParallelAxesGeometry g;
  set_plane(g, axes);
  if (g.angle_error > kMaxAngleError) {
    return std::nullopt;
  }
  set_wrist(g, axes[4], axes[5]);
  set_arms(g, axes);
  g.axis1 = axes[0].direction;
  g.point1 = axes[0].point;
  g.home_inverse = inverse(chain.tool_frame({}));
  return is_usable(g) ? std::optional(g) : std::nullopt;
}

}  // namespace kelvara::kinematics
