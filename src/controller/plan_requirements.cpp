#include "controller/plan_requirements.hpp"

#include <algorithm>
#include <cmath>
#include <string>

#include "kelvara/kinematics/kinematics.hpp"
#include "kelvara/motion_error.hpp"

#include "description/classic_stream.hpp"
#include "motion/drive_torque.hpp"
#include "motion/planned_move.hpp"

namespace kelvara::controller {
namespace {

// Of the velocity limits: what rounding may exceed.
constexpr double kRounding = 1.0 + 1e-6;
// What counts as rest.
constexpr double kAtRestRadPerS = 1e-6;
constexpr double kAtRestRadPerS2 = 0.1;
// A plan that starts nearer to the command needs no transition, rad.
constexpr double kSamePlace = 1e-6;
// Between two samples.
constexpr double kMaxTorqueStep = 2.0;  // N·m

[[noreturn]] void refuse(MotionErrorCode code, const std::string& text, std::size_t joint,
                         double time_s = 0.0) {
  throw MotionError(code, text, static_cast<int>(joint) + 1, time_s);
}

std::string name_of(std::size_t joint) { return "joint " + std::to_string(joint + 1); }

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
             "the plan's positions, velocities and accelerations of " + name_of(i) +
                 " do not belong together",
             i, plan.sample_time_s(k));
    }
  }
}

/// The feed-forward torque of one sample, N·m.
JointArray torque_of(const PlanSample& sample, const ControllerSetup& setup,
                     const RobotKinematics& kinematics) {
  JointArray torque{};
  kinematics.inverse_dynamics(sample.q.data(), sample.dq.data(), sample.ddq.data(), torque.data());
  const JointArray drives = motion::drive_torque(setup.joint_dynamics, sample.dq, sample.ddq);
  for (std::size_t i = 0; i < kJointCount; ++i) {
    torque[i] += drives[i];
  }
  return torque;
}

[[noreturn]] void refuse_torque(const char* what, double value, double limit, std::size_t joint,
                                double time_s) {
  description::ClassicStream text;
  text << "the torque of joint " << joint + 1 << ' ' << what << ' ' << std::abs(value) << " N m, "
       << time_s << " s after the plan's start; the limit is " << limit << " N m";
  refuse(MotionErrorCode::kLimitExceeded, text.str(), joint, time_s);
}

}  // namespace

void require_limits(const Plan& plan, const motion::SetPointLimits& limits) {
  const PlanSample& start = plan.samples().front();
  for (std::size_t k = 0; k < plan.samples().size(); ++k) {
    const PlanSample& sample = plan.samples()[k];
    if (k > 0) {
      require_smooth(plan, k);
    }
    for (std::size_t i = 0; i < kJointCount; ++i) {
      if (limits.joints.clamp_from(i, start.q[i], sample.q[i]) != sample.q[i]) {
        refuse(MotionErrorCode::kJointLimit, "the plan takes " + name_of(i) + " beyond its limits",
               i, plan.sample_time_s(k));
      }
      if (std::abs(sample.dq[i]) > limits.velocity[i] * kRounding) {
        refuse(MotionErrorCode::kLimitExceeded,
               "the plan moves " + name_of(i) + " above the speed ceiling", i,
               plan.sample_time_s(k));
      }
    }
  }
}

void require_torque(const Plan& plan, const ControllerSetup& setup,
                    const RobotKinematics& kinematics) {
  const JointArray& limits = setup.mit.gravity_tau_limits;
  JointArray before = torque_of({plan.samples().front().q, {}, {}}, setup, kinematics);
  for (std::size_t k = 0; k < plan.samples().size(); ++k) {
    const double time_s = plan.sample_time_s(k);
    const JointArray torque = torque_of(plan.samples()[k], setup, kinematics);
    for (std::size_t i = 0; i < kJointCount; ++i) {
      if (std::abs(torque[i]) > limits[i]) {
        refuse_torque("reaches", torque[i], limits[i], i, time_s);
      }
      if (std::abs(torque[i] - before[i]) > kMaxTorqueStep) {
        refuse_torque("steps by", torque[i] - before[i], kMaxTorqueStep, i, time_s);
      }
    }
    before = torque;
  }
}

bool require_rest(const Plan& plan, const JointArray& standing) {
  const PlanSample& start = plan.samples().front();
  const PlanSample& end = plan.samples().back();
  bool is_beside = false;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    if (std::abs(end.dq[i]) > kAtRestRadPerS || std::abs(end.ddq[i]) > kAtRestRadPerS2) {
      refuse(MotionErrorCode::kLimitExceeded, "the plan ends while " + name_of(i) + " still moves",
             i, plan.duration_s());
    }
    const double offset = start.q[i] - standing[i];
    const bool beside = std::abs(offset) > kSamePlace;
    is_beside = is_beside || beside;
    if (!(std::abs(offset) <= motion::kStartTolerance) || std::abs(start.dq[i]) > kAtRestRadPerS ||
        (beside && plan.duration_s() < motion::kFadeS)) {
      description::ClassicStream text;
      text << "the plan starts with joint " << i + 1 << " at " << start.q[i] << " rad, "
           << start.dq[i] << " rad/s; its command stands at " << standing[i] << " rad";
      refuse(MotionErrorCode::kStartMismatch, text.str(), i);
    }
  }
  return is_beside;
}

}  // namespace kelvara::controller
