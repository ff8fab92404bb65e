#pragma once

#include <array>
#include <cstddef>
#include <deque>
#include <vector>

#include "description/joint_array.hpp"

namespace kelvara::controller {

/// Watches joint torques, pass by pass: warns about a joint whose average over the last passes
/// stays above its threshold, and then requests a stop. It has no clock of its own.
class TorqueMonitor {
 public:
  /// A joint that has been over its threshold long enough to warn about.
  struct Finding {
    std::size_t joint;       // 0 to 5
    double average;          // N·m
    double over_limit_time;  // s
    bool stop;               // otherwise a warning
  };

  /// Takes one pass. A joint that requests a stop ends the pass: those after it are not examined.
  /// @param dt_s   Time since the pass before, s.
  /// @param torque Joint torques, N·m.
  /// @return the findings in joint order, valid until the next call.
  const std::vector<Finding>& step(double dt_s, const JointArray& torque);

 private:
  double push(std::size_t joint, double torque);

  std::array<std::deque<double>, kJointCount> torque_windows;
  JointArray over_limit_time{};  // s
  std::vector<Finding> findings_;
};

}  // namespace kelvara::controller
