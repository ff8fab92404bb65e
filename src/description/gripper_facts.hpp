#pragma once

#include "kelvara/damiao_motor/motor_type.hpp"

/// The gripper's constants. Everything tunable is in the YAML file.
namespace kelvara::description {

inline constexpr auto kGripperMotorType = damiao_motor::MotorType::V30_T10;
inline constexpr unsigned kGripperCanId = 7;
inline constexpr unsigned kGripperMasterId = 0x17;

inline constexpr double kMaxJawDistance = 0.085;  // m, fully open

/// An end of the jaws' travel.
struct GripperEnd {
  double opening;      // normalised
  double motor_angle;  // rad
};

inline constexpr GripperEnd kGripperOpen{1.0, -1.235463};
inline constexpr GripperEnd kGripperClosed{0.0, 0.0};

/// Commanded instead of a jaw distance that is out of range, rad.
inline constexpr double kGripperFallbackAngle = -1.0;

/// The jaw linkage: the motor turns a crank, which drives the jaw through a rod. The crank's axis
/// lies to the side of the line on which the rod's end moves.
struct JawLinkage {
  double crank_length;         // m
  double crank_length_sq;      // m²
  double rod_length_sq;        // m²
  double axis_offset;          // m
  double axis_offset_sq;       // m²
  double closed_jaw_offset;    // m, of the rod's end from the crank's axis with closed jaws
  double crank_angle_at_zero;  // rad, at motor angle 0
};

inline constexpr JawLinkage kJawLinkage{.crank_length = 0.0355,
                                        .crank_length_sq = 0.00126025,
                                        .rod_length_sq = 0.001444,
                                        .axis_offset = 0.015393,
                                        .axis_offset_sq = 0.000236944449,
                                        .closed_jaw_offset = 0.01722,
                                        .crank_angle_at_zero = 1.056071};

// The calls' speed and force are the gains kp and kd of the gripper motor's MIT commands.
inline constexpr double kDefaultGripperSpeed = 8.0;  // N·m/rad
inline constexpr double kMinGripperSpeed = 0.1;
inline constexpr double kMaxGripperSpeed = 20.0;
inline constexpr double kDefaultGripperForce = 0.1;  // N·m·s/rad
inline constexpr double kMinGripperForce = 0.1;
inline constexpr double kMaxGripperForce = 1.0;

}  // namespace kelvara::description
