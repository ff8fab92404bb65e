// Shows waypoint moves: through three points at half the configured speed, then in a given time.
// Usage: waypoints INTERFACE
#include <chrono>
#include <exception>
#include <iostream>
#include <thread>
#include <vector>

#include <kelvara/arm_controller.hpp>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: waypoints INTERFACE\n";
    return 2;
  }
  try {
    const auto wait = [](double seconds) {
      std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    };
    const std::vector<std::vector<double>> points{{0.4, 0.2, -0.2, 0.3, 0.0, 0.0},
                                                  {0.6, 0.4, 0.1, 0.0, 0.3, 0.5},
                                                  {0.0, 0.0, 0.0, 0.0, 0.0, 0.0}};
    ArmController arm(false, argv[1], false, kelvara::damiao_motor::MIT_MODE);
    wait(2.5);  // the arm goes home
    arm.move_joint_waypoints(points, /*time_sec=*/0.0, /*speed_percent=*/0.5, /*control_hz=*/400.0);
    wait(4.0);
    std::cout << "at half speed: " << arm.get_joint().transpose() << " rad\n";
    arm.move_joint_waypoints(points, /*time_sec=*/3.0, /*speed_percent=*/0.0, /*control_hz=*/400.0);
    wait(3.5);
    std::cout << "in 3 s: " << arm.get_joint().transpose() << " rad\n";
  } catch (const std::exception& error) {
    std::cerr << "waypoints: " << error.what() << '\n';
    return 1;
  }
}
