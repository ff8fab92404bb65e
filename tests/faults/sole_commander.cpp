#include "faults/sole_commander.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

#include "description/arm_facts.hpp"
#include "description/gripper_facts.hpp"
#include "description/timing.hpp"

namespace {

using kelvara::ArmState;
using Seconds = std::chrono::duration<double>;

constexpr double kPeakRate = 35.0 / 16.0;
constexpr double kWaypointVelocity = 4.0;  // rad/s, the fastest joint's in the settings
// A move follows the clock, and a late loop catches up with 50 ms.
constexpr Seconds kLongestCycle =
    kelvara::description::kMotorTimeoutTime + kelvara::description::kControlPeriod;
constexpr double kMarkerStep = 0.5;  // N·m/rad
constexpr double kFrameRad = 0.001;  // two steps of a frame's position, and rounding

double seconds_now() {
  return Seconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double reference_step() {
  const auto limits =
      kelvara::description::column(&kelvara::description::JointFacts::velocity_limit);
  return *std::max_element(limits.begin(), limits.end()) * kelvara::description::kControlPeriodS;
}

}  // namespace

void SoleCommander::command() {
  watch_.pause();
  if (arm_.state().reason != kelvara::StopReason::kNone) {
    arm_.recover();
    return;
  }
  switch (calls_.below(4)) {
    case 0:
      return timed_move();
    case 1:
      return target();
    case 2:
      return waypoints();
    default:
      return pose_stream();
  }
}

void SoleCommander::timed_move() {
  const std::vector<double> q = calls_.joints(0.6);
  const double duration_s = calls_.between(1.0, 3.0);
  arm_.set_joint(q, duration_s);
  const std::optional<ArmState> state = await_command();
  if (!state || state->condition != kelvara::ArmCondition::kMoving || state->progress > 0.05) {
    return;  // its start is not known
  }
  double way = 0.0;
  for (std::size_t i = 0; i < q.size(); ++i) {
    way = std::max(way, std::abs(q[i] - state->q_command[i]));
  }
  observe(kPeakRate * way / duration_s * kLongestCycle.count());
}

void SoleCommander::target() {
  arm_.set_joint_raw(calls_.joints(0.6), std::vector<double>(6, 0.0));
  if (await_command()) {
    observe(reference_step());
  }
}

void SoleCommander::waypoints() {
  const double share = calls_.between(0.1, 0.4);
  arm_.move_joint_waypoints({calls_.joints(0.6), calls_.joints(0.6)}, 0.0, share, 400.0);
  if (await_command()) {
    observe(share * kWaypointVelocity * kLongestCycle.count());
  }
}

void SoleCommander::pose_stream() {
  for (int k = 0; k < 60; ++k) {
    arm_.set_end_effector_pose_raw({0.35 + 0.0005 * k, 0.001 * k, 0.3}, {0, 0, 0});
    if (k == 0 && await_command()) {
      // Without a solution the command before continues.
      count_steps(std::max(reference_step(), last_bound_));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

/// Waits for a cycle that began after the call, and so evaluated its command; nothing when none has
/// come.
std::optional<ArmState> SoleCommander::await_command() {
  const double start_s = seconds_now();
  ArmState state = arm_.state();
  while (state.time_s < start_s && seconds_now() < start_s + 0.2) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    state = arm_.state();
  }
  return state.time_s < start_s ? std::nullopt : std::optional(state);
}

void SoleCommander::observe(double bound) {
  last_bound_ = bound;
  count_steps(bound);
  std::this_thread::sleep_for(Seconds(calls_.between(0.2, 1.5)));
}

/// The controller sends the marker after the current command's first positions.
void SoleCommander::count_steps(double bound) {
  marker_ = marker_ < kelvara::description::kMaxGripperSpeed ? marker_ + kMarkerStep : kMarkerStep;
  watch_.resume_after(marker_, bound + kFrameRad);
  arm_.setGripperDistance(0.04, marker_, 0.5);
}
