// Shows waypoint moves: through three points at half the configured speed, then in a given time.
// Usage: waypoints INTERFACE
#include <exception>
#include <iostream>
#include <vector>

#include <kelvara/arm_controller.hpp>

#include "interrupt.hpp"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: waypoints INTERFACE\n";
    return 2;
  }
  kelvara::ArmOptions options;
  options.interface = argv[1];
  options.go_home = true;  // in 2 s
  try {
    const std::vector<std::vector<double>> points{{0.4, 0.2, -0.2, 0.3, 0.0, 0.0},
                                                  {0.6, 0.4, 0.1, 0.0, 0.3, 0.5},
                                                  {0.0, 0.0, 0.0, 0.0, 0.0, 0.0}};
    interrupt::catch_signals();
    ArmController arm(options);
    interrupt::wait(arm, 2.5);
    arm.move_joint_waypoints(points, /*time_sec=*/0.0, /*speed_percent=*/0.5, /*control_hz=*/400.0);
    interrupt::wait(arm, 4.0);
    std::cout << "at half speed: " << arm.get_joint().transpose() << " rad\n";
    arm.move_joint_waypoints(points, /*time_sec=*/3.0, /*speed_percent=*/0.0, /*control_hz=*/400.0);
    interrupt::wait(arm, 3.5);
    std::cout << "in 3 s: " << arm.get_joint().transpose() << " rad\n";
  } catch (const std::exception& error) {
    std::cerr << "waypoints: " << error.what() << '\n';
    return 1;
  }
}
