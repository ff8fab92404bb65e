#pragma once

#include <optional>

#include "controller/controller_setup.hpp"
#include "controller/motor_feedback.hpp"
#include "controller/state_buffer.hpp"
#include "kelvara/hardware/kelvara.hpp"

namespace kelvara::controller {

/// What the motors last measured, joint side. A joint without an answer reads zero.
struct Measurement {
  JointArray q{};    // rad
  JointArray dq{};   // rad/s
  JointArray tau{};  // N·m
  std::optional<GripperState> gripper;
};

/// Requests the motors' feedback every 5 ms, drains the bus and publishes what counts. The control
/// thread alone uses it.
class FeedbackReader {
 public:
  /// All must outlive it.
  FeedbackReader(can::socket::Kelvara& hardware, const ControllerSetup& setup,
                 MotorFeedback& feedback, StateBuffer& state)
      : hardware_(hardware), setup_(setup), feedback_(feedback), state_(state) {}

  void begin(motion::TimePoint start) { next_feedback = start; }
  /// Reads a round of feedback if one is due.
  /// @return whether it was.
  bool update(motion::TimePoint now);
  /// Publishes what the motors have answered so far, without asking them.
  void publish();

  const Measurement& measured() const { return measured_; }
  motion::TimePoint next_feedback_time() const { return next_feedback; }

 private:
  void read_motors();

  can::socket::Kelvara& hardware_;
  const ControllerSetup& setup_;
  MotorFeedback& feedback_;
  StateBuffer& state_;
  Measurement measured_;
  bool has_read_ = false;
  motion::TimePoint next_feedback{};
};

/// Steps a schedule past `now`; slots that were missed are dropped.
inline void advance_past(motion::TimePoint& next, std::chrono::milliseconds period,
                         motion::TimePoint now) {
  if (next <= now) {
    next += ((now - next) / period + 1) * period;
  }
}

}  // namespace kelvara::controller
