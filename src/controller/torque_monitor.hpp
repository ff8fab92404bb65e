#pragma once

#include <array>
#include <cstddef>
#include <deque>
#include <vector>

#include "controller/arm_facts.hpp"

namespace kelvara::controller {

/// Judges joint torques, pass by pass: a joint whose average over the last passes stays above its
/// threshold is warned about, and then the arm is to be stopped. It has no clock of its own.
class TorqueWatch {
 public:
  /// Passes that the average covers.
  static constexpr std::size_t torque_window_size = 10;
  static constexpr double kWarnAfterS = 2.0;
  static constexpr double kStopAfterS = 6.0;

  /// A joint above its threshold for long enough to be spoken of.
  struct Finding {
    std::size_t joint;       // 0 to 5
    double average;          // N·m
    double over_limit_time;  // s
    bool stop;               // otherwise a warning
  };

  /// Takes one pass. A joint that calls for a stop ends the pass: those after it are not looked at.
  /// @param dt_s   Time since the pass before, s.
  /// @param torque Joint torques, N·m.
  /// @return the findings in joint order, valid until the next call.
  const std::vector<Finding>& step(double dt_s, const JointArray& torque);

  static double threshold(std::size_t joint) { return torque_thresholds[joint]; }

 private:
  // The last is the gripper's, which is not watched.
  static constexpr std::array<double, 7> torque_thresholds{20.0, 20.0, 20.0, 8.0, 6.0, 6.0, 4.0};

  std::array<std::deque<double>, kJointCount> torque_windows;
  JointArray over_limit_time{};  // s
  std::vector<Finding> findings_;
};

}  // namespace kelvara::controller
