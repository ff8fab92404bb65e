// Shows the first steps: go home, one timed joint move, and back. Works in both modes of the motors
// (MIT, or position/velocity with --pos-vel) and with CAN-FD frames (--fd).
// Usage: first_motion INTERFACE [--fd] [--pos-vel]
#include <chrono>
#include <exception>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include <kelvara/arm_controller.hpp>

int main(int argc, char** argv) {
  bool can_fd = false;
  auto mode = kelvara::damiao_motor::MIT_MODE;
  bool usable = argc > 1 && argv[1][0] != '-';
  for (const std::string& option : std::vector<std::string>(argv + (usable ? 2 : 1), argv + argc)) {
    can_fd = can_fd || option == "--fd";
    mode = option == "--pos-vel" ? kelvara::damiao_motor::POS_VEL_MODE : mode;
    usable = usable && (option == "--fd" || option == "--pos-vel");
  }
  if (!usable) {
    std::cerr << "usage: first_motion INTERFACE [--fd] [--pos-vel]\n";
    return 2;
  }
  try {
    const auto wait = [] { std::this_thread::sleep_for(std::chrono::milliseconds(2500)); };
    ArmController arm(/*with_gripper=*/false, argv[1], can_fd, mode);  // goes home in 2 s
    wait();
    arm.set_joint({0.6, 0.5, -0.4, 0.5, -0.6, 0.8}, 2.0);  // radians, seconds
    wait();
    std::cout << "joints: " << arm.get_joint().transpose() << " rad\n";
    arm.set_joint(std::vector<double>(6, 0.0), 2.0);
    wait();
    arm.cleanup();  // disables the motors: the arm sinks
  } catch (const std::exception& error) {
    std::cerr << "first_motion: " << error.what() << '\n';
    return 1;
  }
}
