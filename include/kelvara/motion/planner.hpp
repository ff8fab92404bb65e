#pragma once

#include <array>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "kelvara/export.hpp"
#include "kelvara/motion/plan.hpp"
#include "kelvara/pose.hpp"

class RobotKinematics;

namespace kelvara {

/// The limits that plans keep.
struct MotionLimits {
  std::array<double, 6> velocity{};        // rad/s
  std::array<double, 6> acceleration{};    // rad/s²
  std::array<double, 6> jerk{};            // rad/s³
  std::array<double, 6> torque{};          // N·m, reported, not enforced
  double tool_speed = 0.25;                // m/s, of lines and arcs
  double tool_acceleration = 1.0;          // m/s²
  double tool_jerk = 10.0;                 // m/s³
  double tool_angular_speed = 1.5;         // rad/s
  double tool_angular_acceleration = 6.0;  // rad/s²
  double tool_angular_jerk = 60.0;         // rad/s³
  // Of the drives, for the reported torques.
  std::array<double, 6> rotor_inertia{};     // kg·m², reflected at the joint
  std::array<double, 6> viscous_friction{};  // N·m·s/rad
  std::array<double, 6> coulomb_friction{};  // N·m

  /// Reads a settings file: the joints' limits are `joint_trajectory`'s, the torques `mit_mode`'s
  /// and the tool's the optional keys of `motion`. The drives' values are `joint_dynamics`'s, zero
  /// where the file has none.
  /// @throws std::runtime_error for a file that cannot be read or is malformed.
  KELVARA_EXPORT static MotionLimits from_settings(const std::string& settings_path);
  /// The same limits for a fraction of the speed: velocities times `fraction`, accelerations times
  /// its square, jerks times its cube; along any path the motion takes 1 / fraction of the time.
  /// The torques and the drives stay as they are.
  /// @throws std::invalid_argument for a fraction outside (0, 1].
  KELVARA_EXPORT MotionLimits scaled(double fraction) const;
};

/// Options of one plan.
struct PlanOptions {
  double duration_s = 0.0;  // exactly this long; 0: as fast as the limits allow
};

/// One segment of a path. The rounding of its end, `blend`, leaves the corner to the next segment
/// out: the path stays within that distance of the corner, and leaves the segment at most that far
/// from it. Joint segments measure it in joint space (the root of the sum of the squared angles).
struct PathSegment {
  enum class Kind { kJoint, kLinear, kArc };
  Kind kind = Kind::kLinear;
  Pose via;                        // kArc: a point between start and end; its rotation is ignored
  Pose end;                        // kLinear and kArc
  std::array<double, 6> joints{};  // kJoint: the end, rad
  double blend = 0.0;              // m (kJoint: rad); 0: the motion stops at the corner

  KELVARA_EXPORT static PathSegment joint(const std::array<double, 6>& joints, double blend = 0.0);
  KELVARA_EXPORT static PathSegment linear(const Pose& end, double blend = 0.0);
  KELVARA_EXPORT static PathSegment arc(const Pose& via, const Pose& end, double blend = 0.0);
};

/// Makes plans from a model and a start state: no arm is needed and nothing moves. A plan is a pure
/// function of its arguments; any threads at once.
///
/// Every function throws std::invalid_argument for values that are not finite, limits that are not
/// positive and negative values of the drives, std::length_error for a plan of more than 1 GiB, and
/// MotionError for what the arm cannot do: a target outside the joint limits, a duration that is
/// too short, and what stands below.
class KELVARA_EXPORT MotionPlanner {
 public:
  /// @param model Must outlive the planner.
  MotionPlanner(const RobotKinematics& model, const MotionLimits& limits);

  const MotionLimits& limits() const { return limits_; }

  /// The fastest jerk-limited motion to a target at rest; all joints arrive together, except that a
  /// joint which is braking already may come to rest a little earlier. A joint that starts outside
  /// its limits of position, velocity or acceleration returns into them first. A joint that moves
  /// too fast to be braked inside its position limits overshoots them by no more than it must.
  /// @param start  Joint angles at rest, or a state in motion.
  /// @param target Joint angles, rad, inside the joint limits.
  Plan plan_joint(const std::array<double, 6>& start, const std::array<double, 6>& target,
                  const PlanOptions& options = {}) const;
  /// A template, so that a list in braces means joint angles.
  template <typename State, typename = std::enable_if_t<std::is_same<State, PlanSample>::value>>
  Plan plan_joint(const State& start, const std::array<double, 6>& target,
                  const PlanOptions& options = {}) const {
    return plan_joint_from(start, target, options);
  }

  /// Passes through each point without stopping, at rest at the last one: as fast as found, not
  /// proven optimal. A sample hits each point; only where the duration asked for is hardly longer
  /// than the shortest may it miss the inner ones by 1e-8 rad. A joint that would leave its limits
  /// between two points stands still at these. Planning takes about 1 ms per point.
  Plan plan_waypoints(const std::array<double, 6>& start,
                      const std::vector<std::array<double, 6>>& points,
                      const PlanOptions& options = {}) const;

  /// The tool on straight lines through the poses, its orientation on the shortest rotation, in
  /// proportion to the way; it stops at each pose. At rest at both ends. A pose at the tool's place
  /// with another rotation turns the tool in place.
  ///
  /// The tool stays within 0.1 mm and 0.1 mrad of its path, between samples too, and keeps its
  /// limits of speed, acceleration and jerk along the path; joints that need more time slow the
  /// tool down near the place where they do. The arm keeps its configuration.
  /// @param start Joint angles at rest. A joint that starts outside its limits must not move
  /// further
  ///              out.
  /// @throws MotionError with the place on the path in its text: `kOutOfReach`; `kJointLimit` with
  ///         the joint and by how much the path needs it beyond its limit; `kSingularity` where the
  ///         joints could follow at less than 1 % of the tool's speed only, or not at all;
  ///         `kBranchChange` where another configuration alone reaches the end.
  ///         `kDurationTooShort`.
  Plan plan_linear(const std::array<double, 6>& start, const std::vector<Pose>& poses,
                   const PlanOptions& options = {}) const;
  /// The tool on the circle through its start, `via` and `end`, in the order of the three, its
  /// orientation on the shortest rotation from start to end. The tool's acceleration limit holds
  /// also across the path. Otherwise as `plan_linear`.
  /// @throws std::invalid_argument also for three points on one line, and for points that coincide.
  Plan plan_arc(const std::array<double, 6>& start, const Pose& via, const Pose& end,
                const PlanOptions& options = {}) const;
  /// Lines, arcs and straight lines in joint space, one after the other. A corner with a blend is
  /// rounded by a curve of continuous curvature, which the tool passes without stopping; the blend
  /// uses at most half of each of the two segments. The motion stops at the other corners, where
  /// the tool turns in place, and where it reverses its direction (by more than about 170 degrees).
  /// @throws std::invalid_argument also for a blend between a joint segment and a line or an arc;
  ///         the number of the segment is in the text. MotionError as `plan_linear`; of a joint
  ///         segment outside the joint limits `kJointLimit`.
  Plan plan_path(const std::array<double, 6>& start, const std::vector<PathSegment>& segments,
                 const PlanOptions& options = {}) const;

  /// The state of rest that a motion comes to when every joint brakes at its limits.
  Plan plan_stop(const PlanSample& start) const;

 private:
  Plan plan_joint_from(const PlanSample& start, const std::array<double, 6>& target,
                       const PlanOptions& options) const;

  const RobotKinematics& model_;
  MotionLimits limits_;
};

}  // namespace kelvara
