#pragma once

#include <array>

#include "kinematics/joint_range.hpp"
#include "kinematics/parallel_axes_geometry.hpp"

namespace kelvara::kinematics {

/// Joint angles that the closed form finds.
struct Candidate {
  JointArray q{};
  bool free = false;  // represents a continuum
  bool clamped =
      false;  // a value beyond a boundary, or an angle beyond a limit, counted as rounding
};

/// Receives the candidates.
class CandidateSink {
 public:
  /// @return Whether the candidate is a solution.
  virtual bool take(const Candidate& candidate) = 0;

 protected:
  ~CandidateSink() = default;
};

/// How strictly the closed form treats its boundaries.
struct ClosedFormTolerance {
  double angle = 1e-10;     // rad; what counts as zero
  double distance = 1e-10;  // m
  double range = 1e-10;     // rad beyond the joint limits
  /// Seeds for a chain that is a little off the geometry: at a boundary (a stretched elbow, an
  /// angle where two solutions meet) both sides of it, and all of a continuum.
  bool seeds = false;
};

/// The joint angles that bring the tool of an ideal geometry to a pose, by decomposition:
///
/// 1. Axes 2, 3 and 4 leave the wrist centre's distance along their direction n as it is. This
/// gives
///    two angles of joint 1.
/// 2. Joint 5 alone then determines the angle between axis 6 and n. Two angles of joint 5.
/// 3. The turn φ of axes 2, 3 and 4 together and joint 6 follow from the rotation.
/// 4. In the plane across n, axis 4 is placed by two links: the law of cosines gives two angles of
///    joint 3; joint 2 follows from the direction, joint 4 from φ.
///
/// Where a step leaves its angle free, the angle is the hint's, else the next of a grid around it
/// that has solutions: joint 1 when the wrist centre stands on its axis, joint 6 when axis 6 is
/// along n, joint 2 when axis 4 is on axis 2.
class ClosedFormIk {
 public:
  /// @param geometry, ranges, hint Must outlive the object.
  ClosedFormIk(const ParallelAxesGeometry& geometry, const JointRanges& ranges,
               const JointArray& hint, const ClosedFormTolerance& tolerance)
      : g_(geometry), ranges_(ranges), hint_(hint), tolerance_(tolerance) {}

  /// Passes every combination within the ranges to the sink. Does not allocate.
  void solve(const Frame& target, CandidateSink& sink);

 private:
  /// What the steps leave to the next one.
  struct Branch : Candidate {
    Rotation rotation;  // of the chain from joint 2 on
    Planar wrist;       // in the plane
    double phi = 0.0;
    Planar turn_phi;
    // As in ClosedFormTolerance, with the errors so far.
    double angle = 0.0, distance = 0.0, margin = 0.0;
  };

  Branch start() const;
  void widen(Branch& branch, double error) const;
  bool fits(Branch& branch, std::size_t joint) const;
  bool bound(Branch& branch, double& square, double slack) const;

  bool solve_shoulder(const Frame& T, CandidateSink& sink);
  bool enter_wrist(Branch branch, const Frame& T, const Vector3& arm, const Planar& turn1,
                   CandidateSink& sink);
  bool solve_wrist(Branch& branch, CandidateSink& sink);
  bool enter_forearm(const Branch& branch, const Planar& turn5, CandidateSink& sink);
  bool free_forearm(const Branch& branch, const Planar& turn5, CandidateSink& sink);
  bool set_joint6(Branch& branch, const Planar& turn5) const;
  bool solve_elbow(Branch& branch, CandidateSink& sink);
  bool place_elbow(const Branch& branch, const Planar& target, const Planar& bend,
                   CandidateSink& sink);
  bool finish(Branch& branch, const Planar& turn2, double beta, CandidateSink& sink);

  template <typename Step>
  bool sweep(double hint, Step step) const;

  const ParallelAxesGeometry& g_;
  const JointRanges& ranges_;
  const JointArray& hint_;
  ClosedFormTolerance tolerance_;
};

}  // namespace kelvara::kinematics
