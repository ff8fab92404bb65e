#pragma once

#include <chrono>
#include <cstdint>

#include "kelvara/kinematics/kinematics.hpp"

#include "fuzz/input.hpp"
#include "motion/setpoint.hpp"

/// Calls with arguments from a fuzzer's bytes. Each one ends the process when the result breaks a
/// law.
namespace fuzz {

/// The model of the current directory's description files.
inline RobotKinematics& model() {
  static RobotKinematics instance;
  return instance;
}

/// Joint angles anywhere within the limits.
kelvara::JointArray take_configuration(Input& input);

inline kelvara::motion::TimePoint take_time(Input& input) {
  constexpr std::int64_t kCentury = 3'000'000'000'000'000'000;  // ns
  const std::int64_t time = input.flip() ? input.take<std::int64_t>() % kCentury
                                         : input.take<std::uint16_t>() * std::int64_t{100'000};
  return kelvara::motion::TimePoint(std::chrono::nanoseconds(time));
}

// Motion.
/// Cycles of several commands one after another.
void run_setpoints(Input& input);
/// Plans a waypoint move, then plays it.
void plan_and_play(Input& input);
void sample_septic(Input& input);

// Kinematics.
void solve_by_jacobian(Input& input);
void solve_by_kdl(Input& input);
void stream_poses(Input& input);
void turn_jaws(Input& input);

// Plans.
/// Plans of the joints: to a target, through points, to rest.
void plan_joints(Input& input);
/// Plans of the tool: a line, an arc, a path.
void plan_tool(Input& input);
/// Moves, plans made by hand, streams, stops and speed overrides, cycle by cycle.
void command_motions(Input& input);
/// All solutions of a pose, and the nearest one.
void solve_poses(Input& input);
/// The collision check of plans among random bodies.
void check_plans(Input& input);

}  // namespace fuzz
