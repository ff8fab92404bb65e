#pragma once

#include "kelvara/export.hpp"

/// The arm's inverse dynamics as a matrix that multiplies its inertial parameters: the joint
/// torques are τ = Y·π (N·m). Gravity is 9.81 m/s² along the first joint's axis, towards the base.
///
/// Y has one row for each joint and ten columns for each moving link, link 1 (at the base) first,
/// in the order
///
///     m, m·x, m·y, m·z, Ixx, Ixy, Ixz, Iyy, Iyz, Izz
///
/// with mass m in kg, first moments (mass times centre of mass) in kg·m, and the entries of the
/// inertia tensor about the origin of the link's frame, not about the centre of mass, in kg·m². All
/// are taken along the axes of the link's frame, which is that of the URDF: it turns with the link,
/// and its origin lies on the link's joint. `kelvara::dynamics::standard_parameters` gives π for
/// the arm as described.
///
/// The lengths of the URDF are built in; for a description with other joints, generate the
/// regressor again (tools/regressor_generator). Formulas: Newton-Euler equations of each link,
/// projected on the joints (Khalil and Dombre, "Modeling, Identification and Control of
/// Robots", 9.3).
///
/// No state, no errors, no allocation: any thread, any number at once. Values that are not finite
/// give entries that are not.
///
/// @param q   Joint angles, rad. The first does not enter: its axis is vertical.
/// @param dq  Joint velocities, rad/s.
/// @param ddq Joint accelerations, rad/s².
/// @param Y   Receives the 6 x 60 matrix column by column: row r of column c at Y[6·c + r]. Every
///            entry is written; those of links nearer to the base than the row's joint are zero.
KELVARA_EXPORT void standard_regressor_qor0815(const double q[6], const double dq[6],
                                               const double ddq[6], double Y[360]);
