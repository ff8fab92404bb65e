// Shows the gripper: open it, close it halfway with a given speed and force, read its distance. The
// arm holds where it is.
// Usage: gripper INTERFACE
#include <exception>
#include <iostream>

#include <kelvara/arm_controller.hpp>

#include "interrupt.hpp"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: gripper INTERFACE\n";
    return 2;
  }
  kelvara::ArmOptions options;
  options.interface = argv[1];
  options.with_gripper = true;
  try {
    interrupt::catch_signals();
    ArmController arm(options);
    arm.openGripper();
    interrupt::wait(arm, 2.0);
    std::cout << "open: " << 1000.0 * arm.get_gripper_distance() << " mm\n";
    arm.setGripperDistance(0.04, /*speed=*/10.0, /*force=*/0.2);
    interrupt::wait(arm, 2.0);
    std::cout << "halfway: " << 1000.0 * arm.get_gripper_distance() << " mm\n";
  } catch (const std::exception& error) {
    std::cerr << "gripper: " << error.what() << '\n';
    return 1;
  }
}
