#pragma once

#include "controller/controller_setup.hpp"
#include "kelvara/hardware/kelvara.hpp"

namespace kelvara::controller {

/// Brings the motors up and checks where the arm is, before any thread runs.
class BringUp {
 public:
  /// @param hardware,setup Must outlive this.
  BringUp(can::socket::Kelvara& hardware, const ControllerSetup& setup)
      : hardware_(hardware), setup_(setup) {}

  /// Creates and enables the motors in the configured mode. Ends the process with status 1 when a
  /// motor parameter reads back different from the configured one.
  void initial_kelvara();
  /// Requests feedback and waits until every motor has reported, 50 ms at most. Ends the process
  /// with status 1 when joint 2 lies behind the base.
  void check_start_pose();

 private:
  void create_motors();
  void enable_motors();

  can::socket::Kelvara& hardware_;
  const ControllerSetup& setup_;
};

}  // namespace kelvara::controller
