#pragma once

#include <bitset>
#include <cstdint>
#include <optional>

#include "controller/command_sender.hpp"
#include "controller/fault_watch.hpp"
#include "controller/feedback_reader.hpp"
#include "controller/occasional_report.hpp"
#include "controller/recovery.hpp"
#include "controller/state_report.hpp"
#include "controller/stop_flags.hpp"

namespace kelvara::controller {

/// One cycle of the control loop, at the time that it is given: reads feedback, computes the
/// commands and sends them. The control thread alone calls it, and alone uses the hardware and the
/// model's torque functions while it runs.
class ControlCycle {
 public:
  /// The parts that a cycle works on; all must outlive it.
  struct Parts {
    can::socket::Kelvara& hardware;
    const RobotKinematics& kinematics;
    const ControllerSetup& setup;
    MotorFeedback& feedback;
    CommandSlot& slot;
    StateBuffer& state;
    StopFlags& flags;
  };

  explicit ControlCycle(const Parts& parts);

  /// Sets the schedules of feedback, gripper and reports to begin at `start`.
  void begin(motion::TimePoint start);
  /// Publishes what the motors answered at the start, so that the application knows where the arm
  /// is before the first cycle.
  void publish_first_state(motion::TimePoint now);
  /// Runs one cycle at the instant `now`. Reports a std::exception on standard error; the rest of
  /// that cycle is skipped.
  void run_cycle(motion::TimePoint now);
  /// Stops the clock of the motions for the time that the loop stood still: they continue where
  /// they were. Prints a line.
  void skip(motion::Clock::duration late, motion::TimePoint now);
  void count_late_cycle() { ++late_cycles_; }

  /// The last cycle that sent commands.
  const CycleRecord& record() const { return record_; }
  /// When feedback is requested next.
  motion::TimePoint next_feedback_time() const { return reader_.next_feedback_time(); }

 private:
  void run_steps(motion::TimePoint now);
  void command_arm(motion::TimePoint now);
  void stand_still(const motion::Instant& instant, motion::TimePoint now);
  void complete(const CommandSnapshot& snapshot);
  motion::Instant instant_at(motion::TimePoint now);
  void note_standing();
  void report_to_handles(const motion::Command& command);
  JointArray start_positions(motion::TimePoint now);
  void report_stale_start(motion::TimePoint now);
  void stop_for_emergency(motion::TimePoint now);
  bool watch_faults(motion::TimePoint now);
  bool react(motion::TimePoint now);
  void hold_others();
  void begin_recovery(motion::TimePoint now);
  void step_recovery(bool has_feedback, motion::TimePoint now);
  void end_recovery(Recovery::Progress progress, const motion::Command& command);
  motion::Brake brake_from_here() const;
  void hold_gripper_where_it_is();
  void report_clipping(motion::TimePoint now);
  void report_bus(motion::TimePoint now);
  void publish_state(motion::TimePoint now);

  Parts parts_;
  FeedbackReader reader_;
  CommandSender sender_;
  FaultWatch watch_;
  Recovery recovery_;
  CycleRecord record_;
  GripperCommand gripper_;
  motion::Clock::duration skipped_{};    // the motions' clock lags by this
  motion::TimePoint last_cycle_{};       // when the last commands were sent
  std::uint64_t last_number_ = 0;        // of the command of the cycle before
  std::optional<JointArray> commanded_;  // positions of the cycle before, joint side
  PlanSample standing_;                  // where the command stands
  MotionStatus settling_;                // of the motion that the arm executes or has ended last
  JointArray settling_at_{};             // where that one ends, rad
  std::bitset<kJointCount> stale_;       // joints whose feedback is too old to start from
  std::optional<Fault> fault_;           // as of the last round of feedback, or latched
  std::uint64_t hold_number_ = 0;        // of the command that a fault has set
  bool started_ = false;
  motion::Brake recovery_hold_;         // while recovering
  std::uint64_t tau_clipped_count = 0;  // since the last report
  std::uint64_t late_cycles_ = 0;
  OccasionalReport foreign_report_;
  OccasionalReport refused_report_;
  motion::TimePoint next_clip_report{};
};

}  // namespace kelvara::controller
