#pragma once

#include <array>
#include <optional>

#include "controller/motor_feedback.hpp"
#include "kelvara/arm_state.hpp"

namespace kelvara::controller {

/// Why a motor, or the whole bus, cannot be relied on.
struct Fault {
  StopReason reason = StopReason::kNone;
  int motor = 0;  // 1 to 7; 0: all of them

  bool operator==(const Fault& other) const {
    return reason == other.reason && motor == other.motor;
  }
};

/// Examines the motors' feedback for errors, disabled motors and silence, round by round. Motors
/// that have never answered are not examined.
class FaultWatch {
 public:
  /// Takes a round of feedback.
  /// @return the fault as of this round: that of the bus, or of the first motor with one.
  /// @param gripper_commanded Whether the gripper is being commanded: only then it answers.
  std::optional<Fault> step(const MotorFeedback& feedback, motion::TimePoint now,
                            bool gripper_commanded);
  /// Forgets the rounds before; silence counts from `now`.
  void begin(motion::TimePoint now) {
    *this = FaultWatch();
    begin_ = now;
  }

 private:
  std::optional<StopReason> examine(std::size_t motor, const MotorFeedback& feedback,
                                    motion::TimePoint now);

  motion::TimePoint begin_{};
  int gripper_rounds_ = 0;  // rounds since the gripper has been commanded
  /// Rounds in which the motor answered that it is not enabled.
  std::array<int, kMotorCount> bad_rounds_{};
  std::array<motion::TimePoint, kMotorCount> last_answer_{};
};

}  // namespace kelvara::controller
