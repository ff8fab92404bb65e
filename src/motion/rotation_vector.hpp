#pragma once

#include "kinematics/frame.hpp"

#include "motion/quintic.hpp"

/// Rotations as vectors: the axis times the angle, rad, in the base frame.
namespace kelvara::motion {

using VectorRates = Rates<kinematics::Vector3>;

/// Returns the rotation by `vector`.
kinematics::Rotation rotation_of(const kinematics::Vector3& vector);
/// Returns the shortest rotation vector of `R`: its length is at most π. Exact to rounding at every
/// angle.
kinematics::Vector3 rotation_vector_of(const kinematics::Rotation& R);
/// Returns the rotation vector that turns `from` into `to`.
kinematics::Vector3 rotation_between(const kinematics::Rotation& from,
                                     const kinematics::Rotation& to);
/// Returns the angular velocity and its derivative, as `first` and `second`, of a rotation vector
/// that changes at the given rates: the left Jacobian of the rotation group times its rate.
VectorRates angular_rates(const VectorRates& vector);

}  // namespace kelvara::motion
