// Shows gravity compensation: the arm floats for ten seconds. Move it by hand; it stays where you
// leave it.
// The model must carry what the arm carries. This example fits no gripper: set
// kinematics.payload.mass in robot_kinematics.yaml to the mass that is mounted, 0 for none, or else
// the floating arm rises or sinks. A line at start reports a payload without a gripper.
// Usage: gravity_compensation INTERFACE
#include <exception>
#include <iostream>

#include <kelvara/arm_controller.hpp>

#include "interrupt.hpp"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: gravity_compensation INTERFACE\n";
    return 2;
  }
  kelvara::ArmOptions options;
  options.interface = argv[1];
  options.go_home = true;  // in 2 s
  try {
    interrupt::catch_signals();
    ArmController arm(options);
    interrupt::wait(arm, 2.5);
    arm.identify_gravity_compensation();
    for (int second = 1; second <= 10; ++second) {
      interrupt::wait(arm, 1.0);
      std::cout << second << " s: " << arm.get_joint().transpose() << " rad" << std::endl;
    }
  } catch (const std::exception& error) {
    std::cerr << "gravity_compensation: " << error.what() << '\n';
    return 1;
  }
}
