#pragma once

#include <array>
#include <cstdint>

namespace kelvara::damiao_motor {

/// Motor models, named after the ranges of their frames: V = velocity range in rad/s, T = torque
/// range in N·m. The position range of all is 12.5 rad. The values index `MOTOR_LIMIT_PARAMS`.
enum class MotorType : std::uint8_t {
  V50_T5 = 0,
  V30_T10 = 1,  // joints 4 to 6 and the gripper
  V50_T10 = 2,
  V8_T28 = 3,  // joints 1 to 3
  V10_T28 = 4,
  V45_T20 = 5,
  V45_T40 = 6,
  V45_T54 = 7,
  V25_T200 = 8,
  V20_T200 = 9,
  V280_T1 = 10,
  V45_T10 = 11,
  V45_T10_B = 12,
};

/// Scaling ranges of one motor model; the frames carry each quantity over [-max, +max].
struct LimitParam {
  double pmax;  // rad
  double vmax;  // rad/s
  double tmax;  // N·m
};

/// One row per `MotorType` value.
inline constexpr std::array<LimitParam, 13> MOTOR_LIMIT_PARAMS{{
    {12.5, 50, 5},
    {12.5, 30, 10},
    {12.5, 50, 10},
    {12.5, 8, 28},
    {12.5, 10, 28},
    {12.5, 45, 20},
    {12.5, 45, 40},
    {12.5, 45, 54},
    {12.5, 25, 200},
    {12.5, 20, 200},
    {12.5, 280, 1},
    {12.5, 45, 10},
    {12.5, 45, 10},
}};
static_assert(MOTOR_LIMIT_PARAMS.back().pmax > 0.0, "the table has fewer rows than its size");

/// The largest gains that an MIT frame carries, for every model; larger ones are clamped.
inline constexpr double kMaxKp = 500.0;  // N·m/rad
inline constexpr double kMaxKd = 5.0;    // N·m·s/rad

}  // namespace kelvara::damiao_motor
