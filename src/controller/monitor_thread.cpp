#include "controller/monitor_thread.hpp"

#include "controller/sleep_until.hpp"
#include "controller/torque_monitor.hpp"

#include "description/arm_facts.hpp"
#include "description/timing.hpp"
#include "diagnostics/line.hpp"

namespace kelvara::controller {
namespace {

using diagnostics::error_line;
using diagnostics::output_line;
using motion::Clock;
using motion::TimePoint;

void report_warning(const TorqueMonitor::Finding& finding) {
  output_line() << "⚠️ 警告：电机" << finding.joint + 1 << " 平均力矩：" << finding.average
                << " 平均力矩超阈值已持续 " << finding.over_limit_time << " 秒！若继续超限，将在 "
                << description::kStopAfterS - finding.over_limit_time << " 秒后断电！";
}

void report_stop(const TorqueMonitor::Finding& finding) {
  output_line() << "❌ 电机" << finding.joint + 1 << " 平均力矩超阈值已持续 "
                << finding.over_limit_time << " 秒，触发急停！";
  error_line() << "[torque_monitor] trigger emergency_stop on joint " << finding.joint + 1
               << ", avg_torque=" << finding.average
               << ", threshold=" << description::kJoints[finding.joint].torque_threshold
               << ", over_limit_time=" << finding.over_limit_time;
}

}  // namespace

void MonitorThread::monitor_motor_torque() {
  diagnostics::mark_time_critical_thread();
  TorqueMonitor monitor;
  TimePoint last_pass = Clock::now();
  while (!flags_.exit_flag) {
    const TimePoint pass_start = Clock::now();
    const double dt_s = std::chrono::duration<double>(pass_start - last_pass).count();
    last_pass = pass_start;
    JointArray torque{};
    if (state_.try_get_latest_torque_state(torque)) {
      for (const TorqueMonitor::Finding& finding : monitor.step(dt_s, torque)) {
        if (finding.stop) {
          flags_.overloaded_joint = static_cast<int>(finding.joint) + 1;
          flags_.emergency_stop_flag = true;  // before the lines
          report_stop(finding);
        } else {
          report_warning(finding);
        }
      }
    }
    sleep_until(pass_start + description::kMonitorPeriod);
  }
  error_line() << "[torque_monitor] loop exited. exit_flag=" << flags_.exit_flag
               << " emergency_stop_flag=" << flags_.emergency_stop_flag;
}

void MonitorThread::join() {
  if (monitor_thread.joinable()) {
    monitor_thread.join();
  }
}

}  // namespace kelvara::controller
