#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "description/joint_array.hpp"
#include "description/timing.hpp"

namespace kelvara::controller {

/// Watches joint torques, pass by pass: warns about a joint whose average over the last passes
/// stays above its threshold, and then requests a stop. It has no clock of its own and allocates
/// nothing.
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
  std::span<const Finding> step(double dt_s, const JointArray& torque);

 private:
  /// The last torques of one joint, a ring.
  struct Window {
    std::array<double, description::kTorqueWindowSize> torques{};  // N·m
    std::size_t count = 0;
    std::size_t oldest = 0;

    void push(double torque);
    double average() const;
  };

  std::array<Window, kJointCount> torque_windows;
  JointArray over_limit_time{};  // s
  std::array<Finding, kJointCount> findings_{};
};

}  // namespace kelvara::controller
