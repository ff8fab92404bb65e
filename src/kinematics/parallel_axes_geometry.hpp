#pragma once

#include <optional>

#include "kinematics/planar.hpp"
#include "kinematics/six_joint_chain.hpp"

namespace kelvara::kinematics {

/// The geometry of an arm whose axes 2, 3 and 4 are parallel and whose axes 5 and 6 meet, by its
/// axes at zero angles in the base frame. All other angles between the axes and all offsets are
/// free. The plane of axes 2, 3 and 4 has the coordinates (e1, e2).
struct ParallelAxesGeometry {
  Vector3 axis1, point1;
  Vector3 normal, e1, e2;  // `normal`: the direction of axis 2; right-handed as (e1, e2, normal)
  double sign3 = 1.0, sign4 = 1.0;  // -1 where axis 3 or 4 points against axis 2
  Planar point2;                    // where axis 2 meets the plane
  Planar upper_arm, forearm;        // from axis 2 to axis 3, and on to axis 4
  Planar wrist_to_axis4;            // from the wrist centre
  Vector3 axis5, axis6;
  Vector3 wrist;         // where axes 5 and 6 meet
  Vector3 mark6, side6;  // two vectors that show the turn about axis 6: (mark6, side6, axis6)
  Frame home_inverse;    // of the tool at zero angles
  // How far the chain is off this geometry: 0 but for rounding, or for a disturbed chain the
  // largest angle between the axes 2, 3 and 4 (rad) and the distance of axes 5 and 6 (m).
  double angle_error = 0.0, distance_error = 0.0;

  Planar in_plane(const Vector3& v) const { return {dot(v, e1), dot(v, e2)}; }
};

/// Returns the geometry next to the chain's. Returns nothing when the chain is further from it than
/// a few hundredths (rad, and of the arm's length), has a prismatic joint, or when two axes that
/// must not be parallel (1 and 2, 4 and 5, 5 and 6) nearly are, or axes 2, 3 and 4 nearly coincide.
std::optional<ParallelAxesGeometry> parallel_axes_geometry(const SixJointChain& chain);

}  // namespace kelvara::kinematics
