// Shows pose streaming: a circle of 5 cm radius, 200 poses a second. Prints the tool's largest
// distance from it.
// Usage: streamed_circle INTERFACE
#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <iostream>
#include <vector>

#include <kelvara/arm_controller.hpp>

#include "interrupt.hpp"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: streamed_circle INTERFACE\n";
    return 2;
  }
  kelvara::ArmOptions options;
  options.interface = argv[1];
  options.go_home = true;  // in 2 s
  try {
    using Clock = std::chrono::steady_clock;
    constexpr double kRadius = 0.05;    // m
    constexpr double kFrequency = 0.5;  // turns a second
    const std::vector<double> level{0.0, 0.0, 0.0};
    interrupt::catch_signals();
    ArmController arm(options);
    interrupt::wait(arm, 2.5);
    arm.set_end_effector_pose({0.50 + kRadius, 0.0, 0.30}, level, 2.0);
    interrupt::wait(arm, 2.5);

    const auto start = Clock::now();
    double worst = 0.0;  // distance from the circle after the first half turn
    for (auto next = start; next < start + std::chrono::seconds(4);
         next += std::chrono::milliseconds(5)) {
      interrupt::wait_until(arm, next);
      const double t = std::chrono::duration<double>(next - start).count();
      const double angle = 2.0 * M_PI * kFrequency * t;
      arm.set_end_effector_pose_raw(
          {0.50 + kRadius * std::cos(angle), kRadius * std::sin(angle), 0.30}, level);
      const auto pose = arm.get_end_effector_pose();
      const double off = std::hypot(pose[0] - 0.50, pose[1]) - kRadius;
      worst = t > 1.0 ? std::max(worst, std::hypot(off, pose[2] - 0.30)) : worst;
    }
    std::cout << "largest distance from the circle: " << 1000.0 * worst << " mm\n";
  } catch (const std::exception& error) {
    std::cerr << "streamed_circle: " << error.what() << '\n';
    return 1;
  }
}
