#pragma once

#include <array>
#include <optional>

#include "controller/command_slot.hpp"
#include "controller/cycle_step.hpp"
#include "controller/fault_watch.hpp"
#include "controller/feedback_reader.hpp"
#include "kelvara/arm_state.hpp"

namespace kelvara::controller {

/// The control thread's own knowledge of the arm's condition.
struct ConditionFacts {
  bool started = false;  // a cycle has sent commands
  bool recovering = false;
  bool stopped_by_monitor = false;
  int overloaded_joint = 0;  // from 1
  std::optional<Fault> fault;
};

/// A fault in words, without an allocation: "motor 3 is disabled", "joint 2 torque too high for too
/// long", "no motor answers".
class FaultText {
 public:
  FaultText(StopReason reason, int motor);
  const char* c_str() const { return text_.data(); }

 private:
  std::array<char, 64> text_{};
};

/// These fill the snapshot of one cycle; the remaining counters are the caller's.
void report_motors(ArmState& state, const MotorFeedback& feedback, motion::TimePoint now);
void report_motion(ArmState& state, const Measurement& measured, const CycleRecord& record,
                   const GripperCommand& gripper);
void report_condition(ArmState& state, const ConditionFacts& facts,
                      const motion::SetPoint& set_point);

}  // namespace kelvara::controller
