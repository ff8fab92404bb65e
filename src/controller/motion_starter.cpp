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

/// Another thread's commands come faster than this one can plan.
[[noreturn]] void refuse_overtaken() {
  throw MotionError(MotionErrorCode::kStartMismatch,
                    "other commands replace each other faster than a plan is made");
}

}  // namespace

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
  return {kinematics_, limits(options.speed)};
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
  bool started = false;
  double lead_s = kFirstLeadS;
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt, lead_s *= 2.0) {
    const StandingCommand now = standing();
    MotionHandle handle;
    if (!now.moving && !now.torque_only) {
      handle = start_at_rest(now, make, check, started);
    } else if (from == From::kMotion && slot_.plan_of(now.number)) {
      handle = start_in_motion(now, lead_s, make, check, started);
    } else {
      stop().wait_for(kBrakingPatienceS);
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
  const double time_s = standing.clock.time_s + lead_s;
  if (time_s >= current->plan.duration_s()) {
    MotionHandle(current->status).wait_for(lead_s);
    return {};
  }
  const Plan plan = make(current->plan.at(time_s));
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
  if (now.moving || now.torque_only) {
    throw MotionError(MotionErrorCode::kStartMismatch,
                      now.torque_only ? "the arm floats: stop() it before a plan is executed"
                                      : "the arm moves: a plan starts from rest");
  }
  const PlanSample& start = plan.samples().front();
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double offset = start.q[i] - now.state.q[i];
    if (!(std::abs(offset) <= motion::kStartTolerance) || std::abs(start.dq[i]) > 1e-6) {
      description::ClassicStream text;
      text << "the plan starts " << offset << " rad from where the command of joint " << i + 1
           << " stands, at " << start.dq[i] << " rad/s";
      refuse(MotionErrorCode::kStartMismatch, text.str(), i);
    }
  }
  const auto motion = to_motion(plan);
  if (!slot_.publish_instead(now.number, motion::PlannedMove{.motion = motion})) {
    throw MotionError(MotionErrorCode::kStartMismatch, "another command has come meanwhile");
  }
  return MotionHandle(motion->status);
}

MotionHandle MotionStarter::stop() {
  motion::StopMove stop{.limits = {setup_.motion.acceleration, setup_.motion.jerk},
                        .range = setup_.limits.joints,
                        .status = std::make_shared<MotionHandle::Status>()};
  return MotionHandle(slot_.stop(std::move(stop)));
}

/// A change of the plan's speed keeps the arm's limits, or what the plan itself reaches.
std::shared_ptr<const motion::PlannedMotion> MotionStarter::to_motion(const Plan& plan) const {
  motion::PlannedMotion motion{plan,
                               {setup_.motion.acceleration, setup_.motion.jerk},
                               std::make_shared<MotionHandle::Status>()};
  for (std::size_t i = 0; i < kJointCount; ++i) {
    double& acceleration = motion.limits.acceleration[i];
    double& jerk = motion.limits.jerk[i];
    acceleration = std::max(acceleration, plan.report().peak_acceleration[i]);
    jerk = std::max(jerk, plan.report().peak_jerk[i]);
  }
  return std::make_shared<const motion::PlannedMotion>(std::move(motion));
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
