#include "controller/recovery.hpp"

#include "description/timing.hpp"

namespace kelvara::controller {
namespace {

constexpr std::chrono::seconds kPatience{1};
constexpr double kFreshS = 0.02;

}  // namespace

Place place_of(can::socket::Kelvara& hardware, std::size_t motor) {
  if (motor == kGripperMotor) {
    return {hardware.get_gripper(), 0};
  }
  return {hardware.get_arm(), static_cast<int>(motor)};
}

damiao_motor::ControlMode mode_of(const ControllerSetup& setup, std::size_t motor) {
  return motor == kGripperMotor ? damiao_motor::MIT_MODE : setup.control_mode;
}

void Recovery::begin(motion::TimePoint now) {
  start_ = now;
  lost_.reset();
  for (std::size_t i = 0; i < feedback_.motor_count(); ++i) {
    const MotorFeedback::Sample& sample = feedback_.motor(i);
    lost_[i] = sample.answered && sample.state.error_code != damiao_motor::kEnabledCode;
  }
}

bool Recovery::is_enabled(std::size_t motor, motion::TimePoint now) const {
  const MotorFeedback::Sample& sample = feedback_.motor(motor);
  if (!sample.answered && !setup_.require_all_motors) {
    return true;  // the arm was started without it
  }
  return feedback_.age_s(motor, now) < kFreshS &&
         sample.state.error_code == damiao_motor::kEnabledCode;
}

bool Recovery::all_fresh(motion::TimePoint now) const {
  for (std::size_t i = 0; i < kJointCount; ++i) {
    if (feedback_.motor(i).answered && feedback_.age_s(i, now) >= kFreshS) {
      return false;
    }
  }
  return true;
}

/// Enables a motor only where it has reported to be since the recovery began: its target is the
/// position that it reported last, and while it was off the arm has sunk.
void Recovery::restore(std::size_t motor) {
  const MotorFeedback::Sample& sample = feedback_.motor(motor);
  if (sample.state.error_code == damiao_motor::kDisabledCode) {
    if (sample.time > start_) {
      enable(motor);
    }
  } else {
    const Place place = place_of(hardware_, motor);
    place.collection.clear_error_one(place.index);
  }
}

/// Sets a disabled motor's mode and time-out and enables it.
void Recovery::enable(std::size_t motor) {
  const Place place = place_of(hardware_, motor);
  place.collection.switch_mode_one(place.index, mode_of(setup_, motor));
  place.collection.write_param_one(place.index, damiao_motor::kTimeoutRegister,
                                   description::kMotorTimeout);
  place.collection.enable_one(place.index);
}

Recovery::Progress Recovery::step(motion::TimePoint now) {
  missing_motor_ = 0;
  for (std::size_t i = 0; i < feedback_.motor_count(); ++i) {
    if (is_enabled(i, now)) {
      continue;
    }
    missing_motor_ = static_cast<int>(i) + 1;
    if (i == kGripperMotor) {
      hardware_.get_gripper().refresh_all();
    }
    if (feedback_.motor(i).state.error_code != damiao_motor::kEnabledCode) {
      lost_.set(i);
      restore(i);
    }
  }
  if (missing_motor_ == 0) {
    return Progress::kDone;
  }
  return now < start_ + kPatience ? Progress::kRunning : Progress::kFailed;
}

}  // namespace kelvara::controller
