#pragma once

#include <array>
#include <cstddef>

#include "simulation/simulated_motor/motor_model.hpp"

/// The simulated arm's motors, one row each. Written without the library's tables, so that a
/// mistake in either shows as a difference.
namespace kelvara::simulation {

/// What a drive adds to the links that it moves.
struct Drive {
  double inertia;       // kg·m², of the rotor at the joint
  double viscous;       // N·m·s/rad
  double dry_friction;  // N·m
};

struct MotorFacts {
  unsigned can_id;
  unsigned master_id;
  MotorModel model;
  Drive drive;
};

inline constexpr MotorModel kLargeMotor{12.5, 8.0, 28.0, 40.0};
inline constexpr MotorModel kSmallMotor{12.5, 30.0, 10.0, 3.0};
inline constexpr Drive kLargeDrive{0.025, 0.30, 0.20};
inline constexpr Drive kSmallDrive{0.006, 0.05, 0.06};
inline constexpr Drive kJaws{0.003, 0.02, 0.0};  // both jaws, at the gripper's motor

inline constexpr std::size_t kJointCount = 6;
inline constexpr std::size_t kGripper = 6;  // row of the gripper's motor

inline constexpr std::array<MotorFacts, 7> kMotors{{
    {1, 0x11, kLargeMotor, kLargeDrive},
    {2, 0x12, kLargeMotor, kLargeDrive},
    {3, 0x13, kLargeMotor, kLargeDrive},
    {4, 0x14, kSmallMotor, kSmallDrive},
    {5, 0x15, kSmallMotor, kSmallDrive},
    {6, 0x16, kSmallMotor, kSmallDrive},
    {7, 0x17, kSmallMotor, kJaws},
}};

// The gripper's stops, at its motor.
inline constexpr double kJawOpenAngle = -1.235463;  // rad
inline constexpr double kJawClosedAngle = 0.0;      // rad

}  // namespace kelvara::simulation
