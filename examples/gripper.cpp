// Shows the gripper: open it, close it halfway with a given speed and force, read its distance.
// Usage: gripper INTERFACE
#include <chrono>
#include <exception>
#include <iostream>
#include <thread>

#include <kelvara/arm_controller.hpp>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: gripper INTERFACE\n";
    return 2;
  }
  try {
    const auto wait = [] { std::this_thread::sleep_for(std::chrono::seconds(2)); };
    ArmController arm(/*with_gripper=*/true, argv[1], false, kelvara::damiao_motor::MIT_MODE);
    wait();  // the gripper closes, the arm goes home
    arm.openGripper();
    wait();
    std::cout << "open: " << 1000.0 * arm.get_gripper_distance() << " mm\n";
    arm.setGripperDistance(0.04, /*speed=*/10.0, /*force=*/0.2);
    wait();
    std::cout << "halfway: " << 1000.0 * arm.get_gripper_distance() << " mm\n";
  } catch (const std::exception& error) {
    std::cerr << "gripper: " << error.what() << '\n';
    return 1;
  }
}
