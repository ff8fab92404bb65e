#pragma once

#include <optional>

#include "kinematics/parallel_axes_geometry.hpp"
#include "kinematics/pose_solutions.hpp"
#include "kinematics/six_joint_chain.hpp"

class RobotKinematics;

namespace kelvara::kinematics {

/// Finds all joint angles of a pose. Immutable; any threads. Nothing allocates but the errors.
class InverseKinematics {
 public:
  enum class Method {
    kClosedForm,       // axes 2, 3 and 4 are parallel, 5 and 6 meet, both to rounding
    kClosedFormSeeds,  // nearly so: the closed form of the geometry next to it, then Newton steps
    kSearch,           // any other chain of six joints
  };

  explicit InverseKinematics(const SixJointChain& chain);

  Method method() const { return method_; }
  const SixJointChain& chain() const { return chain_; }

  /// Returns the solutions within the joint limits, each joint in one turn of those that its limits
  /// allow. Where a joint angle is free, the solution takes the hint's (the middle of the ranges).
  PoseSolutions solutions(const Frame& target) const;
  PoseSolutions solutions(const Frame& target, const JointArray& hint) const;
  /// Returns the solution within the limits whose joint angles are nearest to `near`: the sum of
  /// the squared differences is least, full turns taken into account; std::nullopt without one.
  std::optional<JointArray> nearest(const Frame& target, const JointArray& near) const;
  /// Does the same, and throws without a solution.
  /// @throws MotionError kOutOfReach, or kJointLimit with the joint.
  JointArray solve(const Frame& target, const JointArray& near) const;

 private:
  PoseSolutions within(const JointRanges& ranges, const Frame& target,
                       const JointArray& hint) const;
  JointArray solve_beyond_limits(const Frame& target, const JointArray& near) const;

  SixJointChain chain_;
  JointArray middle_{};
  std::optional<ParallelAxesGeometry> geometry_;
  Method method_ = Method::kSearch;
};

/// The inverse kinematics of a model: what planners use in place of the calls of `RobotKinematics`.
/// @throws std::runtime_error for a model without exactly six moving joints.
const InverseKinematics& inverse_kinematics(const RobotKinematics& model);

}  // namespace kelvara::kinematics
