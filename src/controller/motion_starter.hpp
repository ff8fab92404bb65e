#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "controller/command_slot.hpp"
#include "controller/controller_setup.hpp"
#include "controller/state_buffer.hpp"
#include "kelvara/motion/planner.hpp"
#include "kelvara/move_options.hpp"

namespace kelvara::controller {

/// The handle of a motion that has ended before it began.
MotionHandle ended_motion(MotionOutcome outcome);

/// Starts plans from where the command stands. Any thread; all planning happens on the caller's.
class MotionStarter {
 public:
  /// Makes a plan from a state.
  using MakePlan = std::function<Plan(const PlanSample& start)>;
  /// Refuses a plan by throwing.
  using CheckPlan = std::function<void(const Plan& plan)>;

  /// What a plan may start from.
  enum class From {
    kMotion,  // any state of another plan
    kRest,    // an arm that moves is braked first, which blocks
  };

  /// All must outlive it.
  MotionStarter(const ControllerSetup& setup, const RobotKinematics& kinematics, CommandSlot& slot,
                StateBuffer& state)
      : setup_(setup), kinematics_(kinematics), slot_(slot), state_(state) {}

  /// The limits of a move: those of the settings, and the ceiling of all commands.
  MotionLimits limits(double speed) const;
  MotionPlanner planner(const MoveOptions& options) const;

  /// Plans and starts.
  /// @throws MotionError, std::invalid_argument of `make` and `check`.
  MotionHandle move(From from, const MakePlan& make, const CheckPlan& check);
  /// Starts a plan that must begin where the command stands.
  /// @throws MotionError when it does not, or exceeds a limit of the arm; those of `check`.
  MotionHandle execute(
      const Plan& plan, const CheckPlan& check = [](const Plan& /*plan*/) {});
  /// Brakes, and holds.
  MotionHandle stop();
  /// The command, once the last one has been executed for a cycle.
  StandingCommand standing() const;

 private:
  MotionHandle start_at_rest(const StandingCommand& standing, const MakePlan& make,
                             const CheckPlan& check, bool& started);
  MotionHandle start_in_motion(const StandingCommand& standing, double lead_s, const MakePlan& make,
                               const CheckPlan& check, bool& started);
  PlanSample rest_after(const PlanSample& state) const;
  MotionHandle brake(MotionOutcome outcome);
  bool can_continue(const PlanSample& state) const;
  bool keeps_limits(const Plan& plan) const;
  std::shared_ptr<motion::PlannedMotion> to_motion(Plan plan) const;

  const ControllerSetup& setup_;
  const RobotKinematics& kinematics_;
  CommandSlot& slot_;
  StateBuffer& state_;
  std::atomic<std::uint64_t> stops_{0};  // a move that is being planned does not outlive a stop
};

}  // namespace kelvara::controller
