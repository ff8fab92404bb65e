#include "motion/planned_move.hpp"

#include <algorithm>
#include <cmath>

namespace kelvara::motion {
namespace {

/// The part of the offset that remains, and its first two derivatives by time.
struct Fade {
  double part = 0.0;
  double rate = 0.0;          // 1/s
  double acceleration = 0.0;  // 1/s²
};

Fade fade_at(double time_s, double duration_s) {
  const double T = std::min(kFadeS, duration_s);
  if (time_s >= T) {
    return {};
  }
  const double s = std::max(time_s, 0.0) / T;
  const double s2 = s * s;
  return {1.0 - s2 * s * (10.0 + s * (-15.0 + 6.0 * s)), -s2 * (30.0 + s * (-60.0 + 30.0 * s)) / T,
          -s * (60.0 + s * (-180.0 + 120.0 * s)) / (T * T)};
}

/// The state of the command at the clock's time and rate.
PlanSample state_at(const PlannedMove& move, const PlanClock& clock) {
  const Plan& plan = move.motion->plan;
  PlanSample state = plan_state(plan, clock.time_s);
  const Fade fade = fade_at(clock.time_s, plan.duration_s());
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double dq = state.dq[i] + fade.rate * move.offset[i];
    const double ddq = state.ddq[i] + fade.acceleration * move.offset[i];
    state.q[i] += fade.part * move.offset[i];
    state.dq[i] = clock.rate * dq;
    state.ddq[i] = clock.rate * clock.rate * ddq + clock.rate_rate * dq;
  }
  return state;
}

}  // namespace

void PlannedMove::begin(const Instant& instant) {
  if (started) {
    return;
  }
  started = true;
  const PlanSample& start = motion->plan.samples().front();
  for (std::size_t i = 0; i < kJointCount; ++i) {
    offset[i] = instant.standing.q[i] - start.q[i];
  }
}

SetPoint PlannedMove::evaluate(const Instant& instant, const SetPointLimits& limits,
                               Approach /*approach*/) const {
  const Plan& plan = motion->plan;
  SetPoint point;
  point.clock = instant.repeats
                    ? instant.clock
                    : step_clock(instant.clock, plan, motion->limits, motion->peak_velocity,
                                 instant.standing.ddq, stop_status ? 0.0 : instant.speed_override);
  const bool at_end = point.clock.time_s >= plan.duration_s();
  const bool at_rest = stop_status && point.clock.rate == 0.0;
  point.moving = !at_end && !at_rest;
  point.progress = at_end ? 1.0 : std::clamp(point.clock.time_s / plan.duration_s(), 0.0, 1.0);
  PlanSample state = state_at(*this, point.clock);
  if (!point.moving) {
    state.dq = {};
    state.ddq = {};
    point.end = state.q;
    point.ended_early = !at_end;
  }
  set_state(point, state, limits);
  return point;
}

}  // namespace kelvara::motion
