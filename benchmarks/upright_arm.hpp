#pragma once

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "simulation/simulated_arm/realtime_arm.hpp"

#include "benchmarks/motion_witness.hpp"

inline const std::vector<double> kUpright{0.0, 0.0, -1.57, 0.0, 0.0, 0.0};  // rad

/// A simulated arm in real time that starts upright, balanced, so that it does not fall when its
/// motors are disabled. Reports the motion of joint 1 and when the last motor was disabled.
class UprightArm {
 public:
  explicit UprightArm(const std::string& interface)
      : arm_(kelvara::simulation::load_robot_description(), options(interface)) {
    arm_.start([this] { observe(); });
  }

  /// Whether joint 1 is swinging.
  bool is_fast() const { return fast_; }
  bool has_stopped() const { return off_ns_ != 0 && now_ns() - last_moving_ns_ > 200'000'000; }
  std::int64_t off_ns() const { return off_ns_; }
  std::int64_t last_moving_ns() const { return last_moving_ns_; }

 private:
  static constexpr double kFastEnough = 2.0;   // rad/s
  static constexpr double kStandstill = 0.01;  // rad/s

  static kelvara::simulation::RealtimeArm::Options options(const std::string& interface) {
    kelvara::simulation::RealtimeArm::Options options;
    options.interface = interface;
    options.arm.with_gripper = false;
    std::copy(kUpright.begin(), kUpright.end(), options.arm.start.begin());
    return options;
  }

  void observe() {
    const auto& arm = arm_.arm();
    bool any_on = false;
    for (std::size_t i = 0; i < arm.motor_count(); ++i) {
      any_on = any_on || arm.motor(i).is_enabled();
    }
    was_on_ = was_on_ || any_on;
    if (any_on) {
      off_ns_ = 0;
    } else if (was_on_ && off_ns_ == 0) {
      off_ns_ = now_ns();
    }
    const double velocity = arm.joint_velocities()[0];
    fast_ = velocity > kFastEnough;
    if (std::abs(velocity) > kStandstill) {
      last_moving_ns_ = now_ns();
    }
  }

  bool was_on_ = false;
  std::atomic<bool> fast_{false};
  std::atomic<std::int64_t> off_ns_{0};
  std::atomic<std::int64_t> last_moving_ns_{0};
  kelvara::simulation::RealtimeArm arm_;  // last: its thread observes from the start
};
