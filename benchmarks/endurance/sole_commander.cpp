#include "benchmarks/endurance/sole_commander.hpp"

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

constexpr double kPeriodS = kelvara::description::kControlPeriodS;
constexpr double kPeakRate = 35.0 / 16.0;
constexpr double kWaypointVelocity = 4.0;  // rad/s, the fastest joint's in the settings
constexpr double kMarkerStep = 0.5;        // N·m/rad
constexpr double kFrameRad = 0.001;        // two steps of a frame's position, and rounding

double seconds_now() {
  return Seconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double fastest_joint() {
  const auto limits =
      kelvara::description::column(&kelvara::description::JointFacts::velocity_limit);
  return *std::max_element(limits.begin(), limits.end());
}

}  // namespace

void SoleCommander::command() {
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
  const double duration_s = calls_.between(0.6, 1.2);
  arm_.set_joint(q, duration_s);
  const std::optional<ArmState> state = await_cycle();
  if (!state || state->condition != kelvara::ArmCondition::kMoving || state->progress > 0.05) {
    return;  // its start is not known
  }
  double way = 0.0;
  for (std::size_t i = 0; i < q.size(); ++i) {
    way = std::max(way, std::abs(q[i] - state->q_command[i]));
  }
  begin();
  hold(calls_.between(0.5, 1.5) * duration_s);
  end_with_clock(kPeakRate * way / duration_s, 0.0);
}

void SoleCommander::target() {
  arm_.set_joint_raw(calls_.joints(0.6), std::vector<double>(6, 0.0));
  if (await_cycle()) {
    begin();
    hold(calls_.between(0.1, 1.0));
    end_with_bound(fastest_joint() * kPeriodS);
  }
}

void SoleCommander::waypoints() {
  const double share = calls_.between(0.2, 0.5);
  arm_.move_joint_waypoints({calls_.joints(0.4), calls_.joints(0.4)}, 0.0, share, 400.0);
  if (await_cycle()) {
    begin();
    hold(calls_.between(0.2, 3.0));
    end_with_clock(share * kWaypointVelocity, kPeriodS);  // whole samples
  }
}

void SoleCommander::pose_stream() {
  const auto stream = [this](int k) {
    arm_.set_end_effector_pose_raw({0.35 + 0.0005 * k, 0.001 * k, 0.3}, {0, 0, 0});
    hold(0.01);
  };
  for (int k = 0; k < 10; ++k) {  // a pose without a solution leaves the command before in place
    stream(k);
  }
  if (await_cycle()) {
    begin();
    for (int k = 10; k < 60; ++k) {
      stream(k);
    }
    end_with_bound(fastest_joint() * kPeriodS);
  }
}

/// Waits for a cycle that began after the call, and so evaluated every command before it; nothing
/// when none has come.
std::optional<ArmState> SoleCommander::await_cycle() {
  const double start_s = seconds_now();
  ArmState state = arm_.state();
  while (state.time_s < start_s && seconds_now() < start_s + 0.2) {
    hold(0.001);
    state = arm_.state();
  }
  return state.time_s < start_s ? std::nullopt : std::optional(state);
}

void SoleCommander::hold(double seconds) { std::this_thread::sleep_for(Seconds(seconds)); }

/// The controller sends the marker after the current command's first positions.
void SoleCommander::begin() {
  late_cycles_ = arm_.state().counters.late_cycles;
  marker_ = marker_ < kelvara::description::kMaxGripperSpeed ? marker_ + kMarkerStep : kMarkerStep;
  watch_.begin_after(marker_);
  arm_.setGripperDistance(0.04, marker_, 0.5);
}

/// A move follows the clock. A cycle that is not counted as late began less than a period late; a
/// later loop catches up with 50 ms.
void SoleCommander::end_with_clock(double velocity, double extra_s) {
  const StepWatch::Result steps = watch_.end();
  const std::optional<ArmState> state = await_cycle();
  const bool on_time = state && state->counters.late_cycles == late_cycles_;
  const double lateness_s =
      on_time ? kPeriodS : Seconds(kelvara::description::kMotorTimeoutTime).count();
  add(steps, velocity * (kPeriodS + lateness_s + extra_s) + kFrameRad);
}

void SoleCommander::end_with_bound(double bound) { add(watch_.end(), bound + kFrameRad); }

void SoleCommander::add(const StepWatch::Result& steps, double bound) {
  result_.steps += steps.steps;
  result_.largest_step = std::max(result_.largest_step, steps.largest_step);
  result_.largest_share = std::max(result_.largest_share, steps.largest_step / bound);
}
