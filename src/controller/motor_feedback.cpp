#include "controller/motor_feedback.hpp"

#include <limits>

#include "damiao_motor/motor_protocol.hpp"

#include "description/arm_facts.hpp"
#include "description/gripper_facts.hpp"

namespace kelvara::controller {
namespace {

using namespace damiao_motor;

constexpr std::uint8_t kSaveCommand = 0xAA;
// A motor takes commands of its control modes on its identifier plus a multiple of this.
constexpr std::uint32_t kControlModes = 4;

/// Whether a frame on a feedback identifier is the reply to a register command. As feedback it
/// would be a disabled motor at the very edge of its range.
bool is_register_reply(std::uint32_t can_id, const std::uint8_t* data) {
  const bool own = data[0] == (can_id & 0xFFU) && data[1] == (can_id >> 8U & 0xFFU);
  return own && (data[2] == kQueryCommand || data[2] == kWriteCommand || data[2] == kSaveCommand);
}

std::uint32_t register_value(const std::uint8_t* data) {
  return uint8s_to_uint32(data[4], data[5], data[6], data[7]);
}

}  // namespace

MotorFeedback::MotorFeedback(bool has_gripper)
    : motors_{make_track(0), make_track(1), make_track(2), make_track(3),
              make_track(4), make_track(5), make_track(6)},
      motor_count_(has_gripper ? kMotorCount : kJointCount) {}

MotorFeedback::MotorTrack MotorFeedback::make_track(std::size_t index) {
  const bool gripper = index == kGripperMotor;
  const auto type =
      gripper ? description::kGripperMotorType : description::kJoints[index].motor_type;
  return {gripper ? description::kGripperCanId : description::kJoints[index].can_id,
          gripper ? description::kGripperMasterId : description::kJoints[index].master_id, type,
          SampleFilter(MOTOR_LIMIT_PARAMS[static_cast<std::size_t>(type)].vmax), Sample{}};
}

double MotorFeedback::age_s(std::size_t index, motion::TimePoint now) const {
  const Sample& last = motors_[index].last;
  return last.answered ? std::chrono::duration<double>(now - last.time).count()
                       : std::numeric_limits<double>::infinity();
}

void MotorFeedback::on_frame(std::uint32_t can_id, const std::uint8_t* data, std::size_t size) {
  for (std::size_t i = 0; i < motor_count_; ++i) {
    if (can_id == motors_[i].master_id) {
      take_answer(motors_[i], data, size);
    }
  }
  count_command(can_id, data, size);
}

void MotorFeedback::on_dropped_frame(std::uint32_t can_id, const std::uint8_t* data,
                                     std::size_t size) {
  count_command(can_id, data, size);
}

void MotorFeedback::count_command(std::uint32_t can_id, const std::uint8_t* data,
                                  std::size_t size) {
  for (std::size_t i = 0; i < motor_count_; ++i) {
    if (commands(motors_[i], can_id, data, size)) {
      ++foreign_commands_;
      foreign_motor_ = static_cast<int>(i) + 1;
    }
  }
}

void MotorFeedback::take_answer(MotorTrack& track, const std::uint8_t* data, std::size_t size) {
  if (size < kPayloadSize) {
    return;
  }
  if (is_register_reply(track.can_id, data)) {
    take_echo(track, data);
    return;
  }
  const StateResult state = decode_state(track.type, data, size);
  if (!track.filter.accept(state.position, now_)) {
    ++implausible_samples_;
    return;
  }
  track.last.state = state;
  track.last.time = now_;
  track.last.answered = true;
}

void MotorFeedback::take_echo(MotorTrack& track, const std::uint8_t* data) {
  if (data[2] != kWriteCommand) {
    return;
  }
  has_echo_ = true;
  if (data[3] == kTimeoutRegister) {
    track.last.timeout = register_value(data);
  } else if (data[3] == kControlModeRegister) {
    track.last.control_mode = register_value(data);
  }
}

/// Motion commands, enabling and disabling come on the motor's own identifiers, register writes on
/// the broadcast one. Requests for feedback and register reads there change nothing.
bool MotorFeedback::commands(const MotorTrack& track, std::uint32_t can_id,
                             const std::uint8_t* data, std::size_t size) const {
  if (can_id == kBroadcastId) {
    return size >= 3 && data[0] == track.can_id && data[1] == 0 &&
           (data[2] == kWriteCommand || data[2] == kSaveCommand);
  }
  return can_id % kPosVelIdOffset == track.can_id && can_id < kControlModes * kPosVelIdOffset;
}

}  // namespace kelvara::controller
