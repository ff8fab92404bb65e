#include "controller/motion_starter.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "controller/plan_requirements.hpp"
#include "kelvara/kinematics/kinematics.hpp"

namespace kelvara::controller {
namespace {

constexpr std::chrono::milliseconds kPollPeriod{1};
// The control thread executes a command within a cycle, unless it does not run.
constexpr std::chrono::milliseconds kCyclePatience{200};
// Braking from full speed takes about half a second.
constexpr double kBrakingPatienceS = 5.0;
// How far ahead of the present a plan continues another one, at first; each attempt doubles it.
// Planning must be over by then.
constexpr double kFirstLeadS = 0.02;
constexpr int kMaxAttempts = 6;
void raise(double& peak, double value) { peak = std::max(peak, std::abs(value)); }

/// Another thread's commands come faster than this one can plan.
[[noreturn]] void refuse_overtaken() {
  throw MotionError(MotionErrorCode::kStartMismatch,
                    "other commands replace each other faster than a plan is made");
}

}  // namespace

MotionHandle ended_motion(MotionOutcome outcome) {
  const auto status = std::make_shared<MotionHandle::Status>();
  status->end(outcome);
  return MotionHandle(status);
}

MotionLimits MotionStarter::limits(double speed) const {
  if (!(speed >= 0.0 && speed <= 1.0)) {
    throw std::invalid_argument("speed must be in (0, 1], or 0 for the configured one");
  }
  const double fraction = speed > 0.0 ? speed : setup_.joint_trajectory.default_speed_percent;
  MotionLimits limits = setup_.motion;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    limits.velocity[i] = std::min(fraction * limits.velocity[i], setup_.limits.velocity[i]);
  }
  limits.tool_speed *= fraction;
  limits.tool_angular_speed *= fraction;
  return limits;
}

MotionPlanner MotionStarter::planner(const MoveOptions& options) const {
  const bool by_duration = options.speed == 0.0 && options.duration_s > 0.0;
  return {kinematics_, limits(by_duration ? 1.0 : options.speed)};
}

StandingCommand MotionStarter::standing() const {
  const motion::TimePoint end = motion::Clock::now() + kCyclePatience;
  StandingCommand standing = state_.standing();
  while (!standing.is_known || standing.number < slot_.number()) {
    if (motion::Clock::now() > end) {
      throw std::runtime_error("ArmController: the control thread does not execute commands");
    }
    std::this_thread::sleep_for(kPollPeriod);
    standing = state_.standing();
  }
  return standing;
}

MotionHandle MotionStarter::move(From from, const MakePlan& make, const CheckPlan& check) {
  const auto is_stopped = [this, before = stops_.load()] { return stops_ != before; };
  bool started = false;
  bool is_rehearsed = false;
  double lead_s = kFirstLeadS;
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt, lead_s *= 2.0) {
    if (is_stopped()) {
      return ended_motion(MotionOutcome::kStopped);
    }
    const StandingCommand now = standing();
    if (is_stopped()) {  // before the command was read, which stands still now
      return ended_motion(MotionOutcome::kStopped);
    }
    MotionHandle handle;
    if (!now.moving && !now.torque_only && !slot_.follows_stream()) {
      handle = start_at_rest(now, make, check, started);
    } else if (from == From::kMotion && slot_.plan_of(now.number)) {
      handle = start_in_motion(now, lead_s, make, check, started);
    } else {
      if (!is_rehearsed) {
        check(make(rest_after(now.state)));  // what cannot be done must not brake the arm
        is_rehearsed = true;
      }
      brake(MotionOutcome::kReplaced).wait_for(kBrakingPatienceS);
    }
    if (started) {
      return handle;
    }
  }
  refuse_overtaken();
}

/// About where an arm comes to rest that is braked now.
PlanSample MotionStarter::rest_after(const PlanSample& state) const {
  PlanSample rest;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    rest.q[i] =
        motion::stop_inside({state.q[i], state.dq[i], state.ddq[i]}, setup_.motion.acceleration[i],
                            setup_.motion.jerk[i], i, setup_.limits.joints)
            .end()
            .q;
  }
  return rest;
}

MotionHandle MotionStarter::start_at_rest(const StandingCommand& standing, const MakePlan& make,
                                          const CheckPlan& check, bool& started) {
  PlanSample start;
  start.q = standing.state.q;
  Plan plan = make(start);
  check(plan);
  const auto motion = to_motion(std::move(plan));
  started = slot_.publish_instead(standing.number, motion::PlannedMove{.motion = motion});
  return MotionHandle(motion->status);
}

MotionHandle MotionStarter::start_in_motion(const StandingCommand& standing, double lead_s,
                                            const MakePlan& make, const CheckPlan& check,
                                            bool& started) {
  const auto current = slot_.plan_of(standing.number);
  if (!current) {
    return {};  // it has ended meanwhile
  }
  const double soonest_s = current->has_offset ? motion::kFadeS : 0.0;
  const double time_s = std::max(standing.clock.time_s + lead_s, soonest_s);
  if (time_s >= current->plan.duration_s()) {
    if (standing.clock.rate == 0.0) {
      brake(MotionOutcome::kReplaced)
          .wait_for(kBrakingPatienceS);  // it is paused just before its end
    } else {
      MotionHandle(current->status).wait_for(lead_s);
    }
    return {};
  }
  const PlanSample start = current->plan.at(time_s);
  Plan plan = make(start);
  if (!can_continue(start) || !keeps_limits(plan)) {
    brake(MotionOutcome::kReplaced).wait_for(kBrakingPatienceS);
    return {};
  }
  check(plan);
  const auto motion = to_motion(std::move(plan));
  started = slot_.publish_at(standing.number, time_s, {.motion = motion});
  return MotionHandle(motion->status);
}

MotionHandle MotionStarter::execute(const Plan& plan, const CheckPlan& check) {
  if (plan.empty()) {
    throw std::invalid_argument("a plan without samples cannot be executed");
  }
  require_limits(plan, setup_.limits);
  require_torque(plan, setup_, kinematics_);
  check(plan);
  const StandingCommand now = standing();
  if (now.moving || now.torque_only || slot_.follows_stream()) {
    throw MotionError(MotionErrorCode::kStartMismatch,
                      now.torque_only ? "the arm floats: stop() it before a plan is executed"
                                      : "the arm moves: a plan starts from rest");
  }
  const bool has_offset = require_rest(plan, now.state.q);
  const auto motion = to_motion(plan);
  motion->has_offset = has_offset;
  if (!slot_.publish_instead(now.number, motion::PlannedMove{.motion = motion})) {
    throw MotionError(MotionErrorCode::kStartMismatch, "another command has come meanwhile");
  }
  return MotionHandle(motion->status);
}

MotionHandle MotionStarter::stop() {
  // Before and after, so that no move that is being planned misses it.
  ++stops_;
  MotionHandle handle = brake(MotionOutcome::kStopped);
  ++stops_;
  return handle;
}

MotionHandle MotionStarter::brake(MotionOutcome outcome) {
  motion::StopMove stop{.limits = {setup_.motion.acceleration, setup_.motion.jerk},
                        .range = setup_.limits.joints,
                        .status = std::make_shared<MotionHandle::Status>()};
  return MotionHandle(slot_.stop(std::move(stop), outcome));
}

/// A change of the plan's speed keeps the arm's limits, or what the plan itself reaches.
std::shared_ptr<motion::PlannedMotion> MotionStarter::to_motion(Plan plan) const {
  auto motion = std::make_shared<motion::PlannedMotion>();
  motion->plan = std::move(plan);
  motion->limits = {setup_.motion.acceleration, setup_.motion.jerk};
  motion->status = std::make_shared<MotionHandle::Status>();
  const std::vector<PlanSample>& samples = motion->plan.samples();
  for (std::size_t k = 0; k < samples.size(); ++k) {
    for (std::size_t i = 0; i < kJointCount; ++i) {
      const double before = samples[k > 0 ? k - 1 : 0].ddq[i];
      raise(motion->peak_velocity[i], samples[k].dq[i]);
      raise(motion->limits.acceleration[i], samples[k].ddq[i]);
      raise(motion->limits.jerk[i], (samples[k].ddq[i] - before) / Plan::kSamplePeriodS);
    }
  }
  return motion;
}

/// Whether a plan made with the arm's limits can take over in this state: one that accelerates
/// harder, made with wider limits, is braked by its own.
bool MotionStarter::can_continue(const PlanSample& state) const {
  constexpr double kMargin = 1.01;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    if (std::abs(state.ddq[i]) > kMargin * setup_.motion.acceleration[i]) {
      return false;
    }
  }
  return true;
}

bool MotionStarter::keeps_limits(const Plan& plan) const {
  try {
    require_limits(plan, setup_.limits);
    return true;
  } catch (const MotionError&) {
    return false;
  }
}

}  // namespace kelvara::controller
