#pragma once

#include <array>
#include <vector>

#include "kelvara/motion/planner.hpp"

#include "motion/joint_path.hpp"
#include "motion/speed_profile.hpp"
#include "motion/tool_path.hpp"

namespace kelvara::motion {

/// What moves along a path: the joints, the tool's travel (m) and the tool's turning (rad).
constexpr std::size_t kAxisCount = kJointCount + 2;

/// How much of the limits of the joints a zone heeds.
enum class JointShare {
  kProportional,  // as if the joints moved in proportion to the parameter
  kCurved,        // the second and third derivatives as well; never exceeds a limit of a joint
};

/// Derivatives of an axis by the path's parameter.
struct AxisRates {
  double first = 0.0, second = 0.0, third = 0.0;
};

/// A short stretch of a path, by its middle.
struct PathCell {
  double begin = 0.0, end = 0.0;  // of the parameter
  std::array<AxisRates, kAxisCount> axes{};
  double across = 0.0;  // the tool's second derivative at right angles to its path, m
  // Fractions to which the speed, its rise and its fall are slowed down.
  double speed_relief = 1.0, rise_relief = 1.0, fall_relief = 1.0;
};

/// What to slow down: the speed at a place (accelerations by the square, jerks by the cube of the
/// fraction), or the rise or the fall of the speed in the zone that the place belongs to.
using Relief = double PathCell::*;

/// How fast a path may be passed at each place.
class PathLimits {
 public:
  /// @param tool The tool's path, whose limits hold as well; none for a path in joint space.
  PathLimits(const JointPath& path, const ToolPath* tool, const MotionLimits& limits);

  /// Stretches of similar speed with the limits that hold all over each of them.
  std::vector<SpeedZone> zones(JointShare share) const;
  /// Slows down from `begin` to `end`, to `fraction` of the present speed.
  void relieve(double begin, double end, Relief relief, double fraction);

  /// A place where a joint holds the tool back.
  struct Obstacle {
    double s;
    int joint;  // from 1
  };
  /// The places where the joints hold the tool to less than `fraction` of the speed that its own
  /// limits allow.
  std::vector<Obstacle> obstacles(double fraction) const;

 private:
  struct AxisLimits {
    double speed, acceleration, jerk;
  };

  double axis_speed(const PathCell& cell, std::size_t axis, JointShare share) const;
  /// What the tool's limits allow at a distance (of the parameter) from the nearer end, which is at
  /// rest.
  double tool_speed(const PathCell& cell, double from_rest) const;
  double cell_speed(const PathCell& cell, JointShare share) const;
  double cell_acceleration(const PathCell& cell, JointShare share, double speed) const;
  double cell_jerk(const PathCell& cell, JointShare share, double speed, double acceleration) const;
  SpeedRamp ramp(std::size_t begin, std::size_t end, JointShare share, double speed,
                 Relief relief) const;

  std::vector<PathCell> cells_;
  std::array<AxisLimits, kAxisCount> limits_{};
};

}  // namespace kelvara::motion
