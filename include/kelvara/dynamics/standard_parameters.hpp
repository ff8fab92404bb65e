#pragma once

#include <array>

#include "kelvara/export.hpp"

namespace KDL {
class Chain;
}

namespace kelvara::dynamics {

/// π of `standard_regressor_qor0815`: for each link, base first, m, m·x, m·y, m·z, Ixx, Ixy, Ixz,
/// Iyy, Iyz, Izz about the origin of the link's frame; kg, kg·m, kg·m².
using StandardParameters = std::array<double, 60>;

/// Returns the parameters of a chain as it is described, for example `RobotKinematics::chain()`,
/// with its payload. Segments fixed to a link count as part of it (parallel axis theorem); segments
/// before the first joint do not move and do not count. Any thread.
/// @throws std::invalid_argument "standard_parameters: the chain must have 6 revolute joints".
KELVARA_EXPORT StandardParameters standard_parameters(const KDL::Chain& chain);

/// Returns the same without the segment "payload", which `RobotKinematics` adds for the payload of
/// its configuration (the gripper): the parameters of the links alone.
KELVARA_EXPORT StandardParameters standard_parameters_without_payload(const KDL::Chain& chain);

}  // namespace kelvara::dynamics
