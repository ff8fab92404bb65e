#include <cmath>
#include <stdexcept>
#include <utility>

#include "controller/arm_controller_impl.hpp"
#include "controller/motion_starter.hpp"
#include "kelvara/motion/plan_check.hpp"

#include "description/finite.hpp"

using kelvara::JointArray;
using kelvara::MotionHandle;
using kelvara::MoveOptions;
using kelvara::Plan;
using kelvara::PlanOptions;
using kelvara::PlanSample;
using kelvara::Pose;
using kelvara::controller::MotionStarter;

namespace {

/// The check against what stands around the arm now.
MotionStarter::CheckPlan check_of(const ArmController::Impl& impl) {
  return [environment = impl.environment.get()](const Plan& plan) {
    if (environment) {
      environment->check(plan);
    }
  };
}

MotionHandle move(ArmController::Impl& impl, MotionStarter::From from,
                  const MotionStarter::MakePlan& make) {
  impl.require_running();
  const auto make_unless_stopped = [&](const PlanSample& start) {
    impl.require_running();  // a fault may have come meanwhile
    return make(start);
  };
  return impl.motions->move(from, make_unless_stopped, check_of(impl));
}

}  // namespace

// ---- Moves ----------------------------------------------------------------

MotionHandle ArmController::move_joint(const std::array<double, 6>& target,
                                       const MoveOptions& options) {
  const auto planner = impl().motions->planner(options);
  return move(impl(), MotionStarter::From::kMotion, [&](const PlanSample& start) {
    return planner.plan_joint(start, target, PlanOptions{options.duration_s});
  });
}

MotionHandle ArmController::move_linear(const Pose& end, const MoveOptions& options) {
  const auto planner = impl().motions->planner(options);
  return move(impl(), MotionStarter::From::kRest, [&](const PlanSample& start) {
    return planner.plan_linear(start.q, {end}, PlanOptions{options.duration_s});
  });
}

MotionHandle ArmController::move_arc(const Pose& via, const Pose& end, const MoveOptions& options) {
  const auto planner = impl().motions->planner(options);
  return move(impl(), MotionStarter::From::kRest, [&](const PlanSample& start) {
    return planner.plan_arc(start.q, via, end, PlanOptions{options.duration_s});
  });
}

MotionHandle ArmController::move_path(const std::vector<kelvara::PathSegment>& segments,
                                      const MoveOptions& options) {
  const auto planner = impl().motions->planner(options);
  return move(impl(), MotionStarter::From::kRest, [&](const PlanSample& start) {
    return planner.plan_path(start.q, segments, PlanOptions{options.duration_s});
  });
}

MotionHandle ArmController::execute(const Plan& plan) {
  impl().require_running();
  return impl().motions->execute(plan, check_of(impl()));
}

MotionHandle ArmController::stop() {
  if (!impl().is_running()) {
    return kelvara::controller::ended_motion(kelvara::MotionOutcome::kFault);
  }
  return impl().motions->stop();
}

// ---- Speed and streams ----------------------------------------------------

void ArmController::set_speed_override(double fraction) {
  if (!(fraction >= 0.0 && fraction <= 1.0)) {
    throw std::invalid_argument("the speed override must be in [0, 1]");
  }
  impl().flags.speed_override = fraction;
}

double ArmController::speed_override() const { return impl().flags.speed_override; }

void ArmController::follow(const std::array<double, 6>& target, double time_s) {
  if (!kelvara::description::all_finite(target) || !std::isfinite(time_s)) {
    throw std::invalid_argument("a streamed target and its time must be finite");
  }
  impl().require_running();
  impl().publish_follow(target, time_s);
}

void ArmController::follow_pose(const Pose& target, double time_s) {
  if (!std::isfinite(time_s)) {
    throw std::invalid_argument("a streamed target and its time must be finite");
  }
  const auto standing = impl().state.standing();
  const bool is_current = standing.is_known && standing.number == impl().slot.number();
  const JointArray q = is_current ? standing.state.q : joint_positions();
  follow(impl().following.solve(target, q, kelvara::motion::Clock::now()), time_s);
}

// ---- Queries --------------------------------------------------------------

Pose ArmController::pose() const { return impl().kinematics.pose(joint_positions()); }

Pose ArmController::commanded_pose() const {
  return impl().kinematics.pose(impl().motions->standing().state.q);
}

kelvara::MotionPlanner ArmController::planner(double speed) const {
  return impl().motions->planner({speed, 0.0});
}

void ArmController::set_environment(std::shared_ptr<const kelvara::PlanCheck> environment) {
  impl().environment.set(std::move(environment));
}
