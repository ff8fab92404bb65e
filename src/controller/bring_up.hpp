#pragma once

#include <string>

#include "controller/controller_setup.hpp"
#include "controller/motor_feedback.hpp"
#include "kelvara/hardware/kelvara.hpp"

namespace kelvara::controller {

/// Brings the motors up and checks where the arm is, before any thread runs.
class BringUp {
 public:
  /// All must outlive it; `feedback` listens to the hardware.
  BringUp(can::socket::Kelvara& hardware, const ControllerSetup& setup, MotorFeedback& feedback)
      : hardware_(hardware), setup_(setup), feedback_(feedback) {}

  /// Listens for 50 ms.
  /// @throws std::runtime_error when another program commands the motors.
  void require_sole_master();
  /// Does not listen, but takes what has been heard since the beginning.
  void require_no_other_master() const;
  /// Creates and enables the motors in the configured mode.
  /// @throws StartupFailure when a motor parameter reads back different from the configured one.
  /// @throws std::runtime_error when the interface has refused frames.
  void initial_kelvara();
  /// Requests feedback until every motor has answered as an enabled one, within 20 ms, and reports
  /// those that have not.
  /// @throws std::runtime_error for such a motor where all are required, and when the interface has
  ///         refused frames.
  /// @throws StartupFailure when joint 2 lies behind the base.
  void check_start_pose();

  /// Disables the motors after a start that failed.
  void disable_after_failure();

 private:
  void create_motors();
  void enable_motors();
  void require_accepted_frames();
  bool is_ready(std::size_t motor) const;
  bool has_confirmed_timeout(std::size_t motor) const;
  bool has_confirmed_mode(std::size_t motor) const;
  void ask_again(std::size_t motor);
  bool drain(int quiet_us);
  void wait_for_first_states();
  void report_missing_motors();
  std::string defect_of(std::size_t motor) const;

  can::socket::Kelvara& hardware_;
  const ControllerSetup& setup_;
  MotorFeedback& feedback_;
};

}  // namespace kelvara::controller
