// Shows poses of the tool: a timed move to one, then inverse kinematics for three more and one
// smooth move through their joint angles.
// Usage: tool_pose INTERFACE
#include <exception>
#include <iomanip>
#include <iostream>
#include <vector>

#include <kelvara/arm_controller.hpp>

#include "interrupt.hpp"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: tool_pose INTERFACE\n";
    return 2;
  }
  kelvara::ArmOptions options;
  options.interface = argv[1];
  options.go_home = true;  // in 2 s
  try {
    const std::vector<double> level{0.0, 0.0, 0.0};  // roll, pitch, yaw in rad
    interrupt::catch_signals();
    ArmController arm(options);
    interrupt::wait(arm, 2.5);
    arm.set_end_effector_pose({0.50, 0.15, 0.30}, level, /*tf=*/2.0);  // m; s
    interrupt::wait(arm, 2.5);

    // Each pose is solved from the one before, so that the joints stay on one branch.
    std::vector<std::vector<double>> joints;
    for (const double y : {0.05, -0.05, -0.15}) {
      const auto solution = arm.solve_ik({0.50, y, 0.30}, level,
                                         joints.empty() ? std::vector<double>{} : joints.back());
      if (!solution) {
        std::cerr << "tool_pose: y = " << y << " m cannot be reached\n";
        return 1;
      }
      joints.push_back(*solution);
    }
    arm.move_joint_waypoints(joints, /*time_sec=*/2.0, /*speed_percent=*/0.0, /*control_hz=*/400.0);
    interrupt::wait(arm, 2.5);
    const auto pose = arm.get_end_effector_pose();
    std::cout << std::fixed << std::setprecision(3) << "tool at " << pose[0] << ", " << pose[1]
              << ", " << pose[2] << " m\n";
  } catch (const std::exception& error) {
    std::cerr << "tool_pose: " << error.what() << '\n';
    return 1;
  }
}
