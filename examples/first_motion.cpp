// Shows the first steps: go home, one timed joint move, and back. Works in both modes of the motors
// (MIT, or position/velocity with --pos-vel) and with CAN-FD frames (--fd). Ctrl-C stops the arm.
// Usage: first_motion INTERFACE [--fd] [--pos-vel]
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include <kelvara/arm_controller.hpp>

#include "interrupt.hpp"

int main(int argc, char** argv) {
  kelvara::ArmOptions options;
  options.go_home = true;  // in 2 s; otherwise the arm holds where it is
  bool usable = argc > 1 && argv[1][0] != '-';
  for (const std::string& word : std::vector<std::string>(argv + (usable ? 2 : 1), argv + argc)) {
    options.can_fd = options.can_fd || word == "--fd";
    options.mode = word == "--pos-vel" ? kelvara::damiao_motor::POS_VEL_MODE : options.mode;
    usable = usable && (word == "--fd" || word == "--pos-vel");
  }
  if (!usable) {
    std::cerr << "usage: first_motion INTERFACE [--fd] [--pos-vel]\n";
    return 2;
  }
  options.interface = argv[1];
  try {
    interrupt::catch_signals();
    ArmController arm(options);
    interrupt::wait(arm, 2.5);
    arm.set_joint({0.6, 0.5, -0.4, 0.5, -0.6, 0.8}, 2.0);  // radians, seconds
    interrupt::wait(arm, 2.5);
    std::cout << "joints: " << arm.get_joint().transpose() << " rad\n";
    arm.set_joint(std::vector<double>(6, 0.0), 2.0);
    interrupt::wait(arm, 2.5);
    arm.cleanup();  // disables the motors: the arm sinks
  } catch (const std::exception& error) {
    std::cerr << "first_motion: " << error.what() << '\n';
    return 1;
  }
}
