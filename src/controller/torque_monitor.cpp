#include "controller/torque_monitor.hpp"

#include <cmath>

#include "description/arm_facts.hpp"

namespace kelvara::controller {

void TorqueMonitor::Window::push(double torque) {
  if (count < torques.size()) {
    torques[count++] = torque;
    return;
  }
  torques[oldest] = torque;
  oldest = (oldest + 1) % torques.size();
}

double TorqueMonitor::Window::average() const {
  double sum = 0.0;
  for (std::size_t k = 0; k < count; ++k) {
    sum += torques[(oldest + k) % torques.size()];
  }
  return sum / static_cast<double>(count);
}

std::span<const TorqueMonitor::Finding> TorqueMonitor::step(double dt_s, const JointArray& torque) {
  std::size_t found = 0;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    torque_windows[i].push(torque[i]);
    const double average = torque_windows[i].average();
    if (!(std::abs(average) > description::kJoints[i].torque_threshold)) {
      over_limit_time[i] = 0.0;
      continue;
    }
    over_limit_time[i] += dt_s;
    if (over_limit_time[i] >= description::kStopAfterS) {
      findings_[found++] = {i, average, over_limit_time[i], true};
      break;
    }
    if (over_limit_time[i] >= description::kWarnAfterS) {
      findings_[found++] = {i, average, over_limit_time[i], false};
    }
  }
  return std::span(findings_).first(found);
}

}  // namespace kelvara::controller
