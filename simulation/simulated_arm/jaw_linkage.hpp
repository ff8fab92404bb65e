#pragma once

namespace kelvara::simulation {

/// The gripper's linkage, written without the library's conversion: the motor turns a crank, which
/// drives both jaws through rods. Angles are the motor's, 0 closed and negative open, rad; a stroke
/// is one jaw's distance from the centre, half of the distance between the jaws, m.

double jaw_stroke_at(double motor_angle);
double jaw_motor_angle_at(double stroke);
/// The stroke's derivative by the motor angle, m/rad; negative throughout the travel.
double jaw_ratio_at(double motor_angle);

}  // namespace kelvara::simulation
