#include "controller/motion_starter.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "kelvara/kinematics/kinematics.hpp"

#include "description/classic_stream.hpp"

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
// A plan that starts nearer to the command needs no transition, rad.
constexpr double kSamePlace = 1e-6;
// What counts as rest at the end of a plan.
constexpr double kAtRestRadPerS = 1e-6;
constexpr double kAtRestRadPerS2 = 0.1;
// Of the joints' velocity limits: what rounding may exceed.
constexpr double kRounding = 1.0 + 1e-6;

[[noreturn]] void refuse(MotionErrorCode code, const std::string& text, std::size_t joint,
                         double time_s = 0.0) {
  throw MotionError(code, text, static_cast<int>(joint) + 1, time_s);
}

/// A plan made by hand may jump: its velocities must be those of its positions.
void require_smooth(const Plan& plan, std::size_t k) {
  constexpr double kPositionTolerance = 1e-4;  // rad
  constexpr double kVelocityTolerance = 0.05;  // rad/s
  const PlanSample& from = plan.samples()[k - 1];
  const PlanSample& to = plan.samples()[k];
  const double h = plan.sample_time_s(k) - plan.sample_time_s(k - 1);
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double way = h * (0.5 * (from.dq[i] + to.dq[i]) - h * (to.ddq[i] - from.ddq[i]) / 12.0);
    const double change = 0.5 * h * (from.ddq[i] + to.ddq[i]);
    if (!(std::abs(to.q[i] - from.q[i] - way) <= kPositionTolerance &&
          std::abs(to.dq[i] - from.dq[i] - change) <= kVelocityTolerance)) {
      refuse(MotionErrorCode::kLimitExceeded,
             "the plan's positions, velocities and accelerations of joint " +
                 std::to_string(i + 1) + " do not belong together",
             i, plan.sample_time_s(k));
    }
  }
}

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
  while (standing.number < slot_.number()) {
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
      brake().wait_for(kBrakingPatienceS);
    }
    if (started) {
      return handle;
    }
  }
  refuse_overtaken();
}

MotionHandle MotionStarter::start_at_rest(const StandingCommand& standing, const MakePlan& make,
                                          const CheckPlan& check, bool& started) {
  PlanSample start;
  start.q = standing.state.q;
  const Plan plan = make(start);
  check(plan);
  const auto motion = to_motion(plan);
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
      brake().wait_for(kBrakingPatienceS);  // it is paused just before its end
    } else {
      MotionHandle(current->status).wait_for(lead_s);
    }
    return {};
  }
  const PlanSample start = current->plan.at(time_s);
  const Plan plan = make(start);
  if (!can_continue(start) || !keeps_limits(plan)) {
    brake().wait_for(kBrakingPatienceS);
    return {};
  }
  check(plan);
  const auto motion = to_motion(plan);
  started = slot_.publish_at(standing.number, time_s, {.motion = motion});
  return MotionHandle(motion->status);
}

MotionHandle MotionStarter::execute(const Plan& plan) {
  if (plan.empty()) {
    throw std::invalid_argument("a plan without samples cannot be executed");
  }
  require_limits(plan);
  const StandingCommand now = standing();
  if (now.moving || now.torque_only || slot_.follows_stream()) {
    throw MotionError(MotionErrorCode::kStartMismatch,
                      now.torque_only ? "the arm floats: stop() it before a plan is executed"
                                      : "the arm moves: a plan starts from rest");
  }
  bool has_offset = false;
  const PlanSample& start = plan.samples().front();
  const PlanSample& end = plan.samples().back();
  for (std::size_t i = 0; i < kJointCount; ++i) {
    if (std::abs(end.dq[i]) > kAtRestRadPerS || std::abs(end.ddq[i]) > kAtRestRadPerS2) {
      refuse(MotionErrorCode::kLimitExceeded,
             "the plan ends while joint " + std::to_string(i + 1) + " still moves", i,
             plan.duration_s());
    }
    const double offset = start.q[i] - now.state.q[i];
    const bool beside = std::abs(offset) > kSamePlace;
    has_offset = has_offset || beside;
    if (!(std::abs(offset) <= motion::kStartTolerance) || std::abs(start.dq[i]) > 1e-6 ||
        (beside && plan.duration_s() < motion::kFadeS)) {
      description::ClassicStream text;
      text << "the plan starts " << offset << " rad from where the command of joint " << i + 1
           << " stands, at " << start.dq[i] << " rad/s";
      refuse(MotionErrorCode::kStartMismatch, text.str(), i);
    }
  }
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
  MotionHandle handle = brake();
  ++stops_;
  return handle;
}

MotionHandle MotionStarter::brake() {
  motion::StopMove stop{.limits = {setup_.motion.acceleration, setup_.motion.jerk},
                        .range = setup_.limits.joints,
                        .status = std::make_shared<MotionHandle::Status>()};
  return MotionHandle(slot_.stop(std::move(stop)));
}

/// A change of the plan's speed keeps the arm's limits, or what the plan itself reaches.
std::shared_ptr<motion::PlannedMotion> MotionStarter::to_motion(const Plan& plan) const {
  auto motion = std::make_shared<motion::PlannedMotion>();
  motion->plan = plan;
  motion->limits = {setup_.motion.acceleration, setup_.motion.jerk};
  motion->status = std::make_shared<MotionHandle::Status>();
  const std::vector<PlanSample>& samples = plan.samples();
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
    require_limits(plan);
    return true;
  } catch (const MotionError&) {
    return false;
  }
}

void MotionStarter::require_limits(const Plan& plan) const {
  const description::JointLimits& range = setup_.limits.joints;
  const PlanSample& start = plan.samples().front();
  for (std::size_t k = 0; k < plan.samples().size(); ++k) {
    const PlanSample& sample = plan.samples()[k];
    if (k > 0) {
      require_smooth(plan, k);
    }
    for (std::size_t i = 0; i < kJointCount; ++i) {
      if (range.clamp_from(i, start.q[i], sample.q[i]) != sample.q[i]) {
        refuse(MotionErrorCode::kJointLimit,
               "the plan takes joint " + std::to_string(i + 1) + " beyond its limits", i,
               plan.sample_time_s(k));
      }
      if (std::abs(sample.dq[i]) > setup_.limits.velocity[i] * kRounding) {
        refuse(MotionErrorCode::kLimitExceeded,
               "the plan moves joint " + std::to_string(i + 1) + " above the speed ceiling", i,
               plan.sample_time_s(k));
      }
    }
  }
}

}  // namespace kelvara::controller
