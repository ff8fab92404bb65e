#pragma once

#include "description/controller_settings.hpp"

namespace kelvara::motion {

/// Returns the torque, N·m, that the joints' drives need beyond the links' dynamics:
/// rotor_inertia·ddq + viscous_friction·dq + coulomb_friction·tanh(dq / 0.05 rad/s). A smooth
/// function, so that the Coulomb part never steps where the velocity changes its sign. Pure.
/// @param dq  rad/s.
/// @param ddq rad/s².
JointArray drive_torque(const description::JointDynamicsConfig& drives, const JointArray& dq,
                        const JointArray& ddq);

}  // namespace kelvara::motion
