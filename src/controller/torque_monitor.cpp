#include "controller/torque_monitor.hpp"

#include <cmath>
#include <numeric>

#include "description/arm_facts.hpp"
#include "description/timing.hpp"

namespace kelvara::controller {

/// Adds a torque to the joint's window; returns the window's average.
double TorqueMonitor::push(std::size_t joint, double torque) {
  std::deque<double>& window = torque_windows[joint];
  window.push_back(torque);
  if (window.size() > description::kTorqueWindowSize) {
    window.pop_front();
  }
  return std::accumulate(window.begin(), window.end(), 0.0) / static_cast<double>(window.size());
}

const std::vector<TorqueMonitor::Finding>& TorqueMonitor::step(double dt_s,
                                                               const JointArray& torque) {
  findings_.clear();
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double average = push(i, torque[i]);
    if (!(std::abs(average) > description::kJoints[i].torque_threshold)) {
      over_limit_time[i] = 0.0;
      continue;
    }
    over_limit_time[i] += dt_s;
    if (over_limit_time[i] >= description::kStopAfterS) {
      findings_.push_back({i, average, over_limit_time[i], true});
      break;
    }
    if (over_limit_time[i] >= description::kWarnAfterS) {
      findings_.push_back({i, average, over_limit_time[i], false});
    }
  }
  return findings_;
}

}  // namespace kelvara::controller
