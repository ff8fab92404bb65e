#include "controller/torque_monitor.hpp"

#include <cmath>
#include <iostream>
#include <numeric>
#include <sstream>

#include "controller/arm_controller_impl.hpp"
#include "controller/sleep_until.hpp"

namespace kelvara::controller {
namespace {

constexpr std::chrono::milliseconds kPassPeriod{20};

void report(const TorqueWatch::Finding& finding) {
  std::ostringstream out;
  if (!finding.stop) {
    out << "⚠️ 警告：电机" << finding.joint + 1 << " 平均力矩：" << finding.average
        << " 平均力矩超阈值已持续 " << finding.over_limit_time << " 秒！若继续超限，将在 "
        << TorqueWatch::kStopAfterS - finding.over_limit_time << " 秒后断电！\n";
    std::cout << out.str() << std::flush;
    return;
  }
  out << "❌ 电机" << finding.joint + 1 << " 平均力矩超阈值已持续 " << finding.over_limit_time
      << " 秒，触发急停！\n";
  std::cout << out.str() << std::flush;
  std::ostringstream line;
  line << "[torque_monitor] trigger emergency_stop on joint " << finding.joint + 1
       << ", avg_torque=" << finding.average
       << ", threshold=" << TorqueWatch::threshold(finding.joint)
       << ", over_limit_time=" << finding.over_limit_time << '\n';
  std::cerr << line.str();
}

}  // namespace

const std::vector<TorqueWatch::Finding>& TorqueWatch::step(double dt_s, const JointArray& torque) {
  findings_.clear();
  for (std::size_t i = 0; i < kJointCount; ++i) {
    std::deque<double>& window = torque_windows[i];
    window.push_back(torque[i]);
    if (window.size() > torque_window_size) {
      window.pop_front();
    }
    const double average =
        std::accumulate(window.begin(), window.end(), 0.0) / static_cast<double>(window.size());
    if (!(std::abs(average) > torque_thresholds[i])) {
      over_limit_time[i] = 0.0;
      continue;
    }
    over_limit_time[i] += dt_s;
    if (over_limit_time[i] >= kStopAfterS) {
      findings_.push_back({i, average, over_limit_time[i], true});
      break;
    }
    if (over_limit_time[i] >= kWarnAfterS) {
      findings_.push_back({i, average, over_limit_time[i], false});
    }
  }
  return findings_;
}

}  // namespace kelvara::controller

void ArmController::Impl::monitor_motor_torque() {
  using kelvara::controller::Clock;
  kelvara::controller::TorqueWatch watch;
  TimePoint last_pass = Clock::now();
  while (!exit_flag) {
    const TimePoint pass_start = Clock::now();
    const double dt_s = std::chrono::duration<double>(pass_start - last_pass).count();
    last_pass = pass_start;
    JointArray torque{};
    if (try_get_latest_torque_state(torque)) {
      for (const auto& finding : watch.step(dt_s, torque)) {
        kelvara::controller::report(finding);
        if (finding.stop) {
          emergency_stop_flag = true;
        }
      }
    }
    kelvara::controller::sleep_until(pass_start + kelvara::controller::kPassPeriod);
  }
  std::ostringstream line;
  line << "[torque_monitor] loop exited. exit_flag=" << exit_flag
       << " emergency_stop_flag=" << emergency_stop_flag << '\n';
  std::cerr << line.str();
}
