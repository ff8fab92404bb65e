#pragma once

#include <bitset>

#include "controller/controller_setup.hpp"
#include "controller/motor_feedback.hpp"
#include "kelvara/hardware/kelvara.hpp"

namespace kelvara::controller {

/// Brings motors that are disabled or report an error back, one round of feedback after the other:
/// clears errors, sets mode and time-out, enables. The control thread alone uses it.
class Recovery {
 public:
  enum class Progress { kRunning, kDone, kFailed };

  /// @param hardware,setup,feedback Must outlive it.
  Recovery(can::socket::Kelvara& hardware, const ControllerSetup& setup,
           const MotorFeedback& feedback)
      : hardware_(hardware), setup_(setup), feedback_(feedback) {}

  /// Starts; fails if it takes longer than a second.
  void begin(motion::TimePoint now);
  /// Takes a round of feedback and sends the next step to each motor that is not enabled.
  Progress step(motion::TimePoint now);
  /// Whether the motor has been enabled all the time, so that it held its position.
  bool kept_enabled(std::size_t motor) const { return !lost_[motor]; }
  /// Whether every joint that has ever answered has done so just now.
  bool all_fresh(motion::TimePoint now) const;
  /// The last motor, from 1, that was not enabled in the last step; 0 for none.
  int missing_motor() const { return missing_motor_; }

 private:
  bool is_enabled(std::size_t motor, motion::TimePoint now) const;
  void restore(std::size_t motor);
  void enable(std::size_t motor);

  can::socket::Kelvara& hardware_;
  const ControllerSetup& setup_;
  const MotorFeedback& feedback_;
  motion::TimePoint start_{};
  std::bitset<kMotorCount> lost_;
  int missing_motor_ = 0;
};

/// The collection that holds a motor, and its index there.
struct Place {
  damiao_motor::DMDeviceCollection& collection;
  int index;
};
Place place_of(can::socket::Kelvara& hardware, std::size_t motor);
/// The control mode that a motor is run in; the gripper's is always MIT.
damiao_motor::ControlMode mode_of(const ControllerSetup& setup, std::size_t motor);

}  // namespace kelvara::controller
