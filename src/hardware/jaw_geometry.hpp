#pragma once

#include "description/gripper_facts.hpp"

namespace kelvara::can::socket {

/// The gripper's jaw linkage: motor angle (rad) against jaw distance (metres). Pure.

using description::kMaxJawDistance;

/// True when the linkage reaches this distance.
bool is_jaw_distance_in_range(double distance_m);

/// The motor angle that opens the jaws to `distance_m`, which must be in range.
double jaw_angle_from_distance(double distance_m);

/// The jaw distance at a motor angle. At an angle that the linkage cannot take: -1.0, with an
/// error line on standard error.
double jaw_distance_from_angle(double motor_angle);

}  // namespace kelvara::can::socket
