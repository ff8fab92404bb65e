#include "simulation/simulated_arm/progress_display.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace kelvara::simulation {
namespace {

constexpr std::uint64_t kLinePeriodMs = 250;
constexpr double kMoved = 0.002;  // rad; less counts as standing still

std::string state_of(const SimulatedMotor& motor) {
  if (motor.error() != 0) {
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "error 0x%X", motor.error());
    return text.data();
  }
  if (!motor.is_enabled()) {
    return "off";
  }
  return motor.control_mode() == 1 ? "MIT" : "position/velocity";
}

}  // namespace

std::string ProgressDisplay::motor_states() const {
  std::string states;
  std::size_t first = 0;
  for (std::size_t i = 0; i < arm_.motor_count(); ++i) {
    const std::string state = state_of(arm_.motor(i));
    const bool last_of_run = i + 1 == arm_.motor_count() || state_of(arm_.motor(i + 1)) != state;
    if (last_of_run) {
      states.append(states.empty() ? "" : ", ").append(first == i ? "motor " : "motors ");
      states.append(std::to_string(first + 1));
      if (first != i) {
        states.append("-").append(std::to_string(i + 1));
      }
      states.append(" ").append(state);
      first = i + 1;
    }
  }
  return states;
}

void ProgressDisplay::print(const std::string& text) const {
  std::printf("[arm %7.3f s] %s\n", static_cast<double>(time_ms_) / 1000.0, text.c_str());
  std::fflush(stdout);
}

void ProgressDisplay::update(const std::string& event) {
  ++time_ms_;
  if (!event.empty()) {
    print(event);
  }
  const std::string states = motor_states();
  if (states != last_states_) {
    last_states_ = states;
    print(states);
  }
  if (time_ms_ % kLinePeriodMs != 0) {
    return;
  }
  const SimulatedArm::Joints q = arm_.joint_positions();
  const bool moved = !std::equal(q.begin(), q.end(), last_printed_.begin(),
                                 [](double a, double b) { return std::abs(a - b) < kMoved; });
  if (moved) {
    last_printed_ = q;
    const Triple tool = arm_.tool_position();
    std::array<char, 160> line{};
    std::snprintf(line.data(), line.size(),
                  "joints %6.2f %6.2f %6.2f %6.2f %6.2f %6.2f rad   tool %6.3f %6.3f %6.3f m", q[0],
                  q[1], q[2], q[3], q[4], q[5], tool[0], tool[1], tool[2]);
    print(line.data());
  }
}

}  // namespace kelvara::simulation
