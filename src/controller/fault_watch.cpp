#include "controller/fault_watch.hpp"

#include <algorithm>

namespace kelvara::controller {
namespace {

constexpr double kSilenceS = 0.1;
// One answer could be a corrupted or a late one.
constexpr int kConfirmingRounds = 2;
// Rounds of 5 ms until a gripper that is commanded again must have answered.
constexpr int kGripperGraceRounds = 40;

}  // namespace

std::optional<StopReason> FaultWatch::examine(std::size_t motor, const MotorFeedback& feedback,
                                              motion::TimePoint now) {
  const MotorFeedback::Sample& sample = feedback.motor(motor);
  if (!sample.answered) {
    return std::nullopt;
  }
  const double watched_s = std::chrono::duration<double>(now - begin_).count();
  if (std::min(feedback.age_s(motor, now), watched_s) > kSilenceS) {
    return StopReason::kMotorSilent;
  }
  const bool news = sample.time != last_answer_[motor];
  last_answer_[motor] = sample.time;
  if (sample.state.error_code == damiao_motor::kEnabledCode) {
    bad_rounds_[motor] = 0;
  } else if (news) {
    ++bad_rounds_[motor];
  }
  if (bad_rounds_[motor] < kConfirmingRounds) {
    return std::nullopt;
  }
  return sample.state.error_code == damiao_motor::kDisabledCode ? StopReason::kMotorDisabled
                                                                : StopReason::kMotorError;
}

std::optional<Fault> FaultWatch::step(const MotorFeedback& feedback, motion::TimePoint now,
                                      bool gripper_commanded) {
  gripper_rounds_ = gripper_commanded ? gripper_rounds_ + 1 : 0;
  const bool with_gripper =
      feedback.motor_count() > kJointCount && gripper_rounds_ > kGripperGraceRounds;
  std::optional<Fault> first;
  std::size_t joints_silent = 0;
  std::size_t joints_known = 0;
  for (std::size_t i = 0; i < (with_gripper ? kMotorCount : kJointCount); ++i) {
    const std::optional<StopReason> reason = examine(i, feedback, now);
    if (reason && !first) {
      first = Fault{*reason, static_cast<int>(i) + 1};
    }
    if (i < kJointCount) {
      joints_known += feedback.motor(i).answered ? 1 : 0;
      joints_silent += reason == StopReason::kMotorSilent ? 1 : 0;
    }
  }
  if (joints_known > 0 && joints_silent == joints_known) {
    return Fault{StopReason::kBusSilent, 0};
  }
  return first;
}

}  // namespace kelvara::controller
