#pragma once

#include <cstdint>

#include "controller/command_slot.hpp"
#include "controller/controller_setup.hpp"
#include "controller/cycle_step.hpp"
#include "controller/state_buffer.hpp"
#include "controller/stop_flags.hpp"
#include "kelvara/hardware/kelvara.hpp"

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
    CommandSlot& slot;
    StateBuffer& state;
    StopFlags& flags;
  };

  explicit ControlCycle(const Parts& parts) : parts_(parts) {}

  /// Sets the schedules of feedback, gripper and reports to begin at `start`.
  void begin(motion::TimePoint start);
  /// Runs one cycle at the instant `now`. Reports a std::exception on standard error; the rest of
  /// that cycle is skipped.
  void run_cycle(motion::TimePoint now);

  /// The last cycle that sent commands.
  const CycleRecord& record() const { return record_; }
  /// When feedback is requested next.
  motion::TimePoint next_feedback_time() const { return next_feedback; }

 private:
  void run_steps(motion::TimePoint now);
  JointArray update_feedback(motion::TimePoint now);
  JointArray publish_feedback();
  std::optional<GripperState> read_gripper();
  void stop_for_emergency();
  void send(const CycleRecord& record);
  void relax_gripper();
  void send_gripper(const GripperCommand& command, motion::TimePoint now);
  void report(const CycleRecord& record);

  Parts parts_;
  CycleRecord record_;
  bool pos_vel_gravity_warned = false;
  std::uint64_t tau_clipped_count = 0;  // since the last report
  motion::TimePoint next_feedback{};
  motion::TimePoint next_gripper_send{};
  motion::TimePoint next_clip_report{};
};

}  // namespace kelvara::controller
