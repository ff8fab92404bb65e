#pragma once

#include "description/gripper_facts.hpp"

namespace kelvara::can::socket {

/// The gripper's jaw linkage: conversion between motor angle (rad) and jaw distance (m). Stateless:
/// any thread.

using description::kMaxJawDistance;

/// True for [0, kMaxJawDistance]; false for NaN.
bool is_jaw_distance_in_range(double distance_m);

/// The motor angle (rad) at which the jaws are `distance_m` apart; `distance_m` must be in range.
double jaw_angle_from_distance(double distance_m);

/// The jaw distance (m) at a motor angle (rad). At an angle that the linkage cannot reach, prints
/// an error line on standard error and returns -1.0.
double jaw_distance_from_angle(double motor_angle);

}  // namespace kelvara::can::socket
