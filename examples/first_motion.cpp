// Goes home, makes one timed joint move and comes back.
// Usage: first_motion INTERFACE [--fd] [--pos-vel]
#include <chrono>
#include <cstdio>
#include <exception>
#include <string>
#include <thread>

#include <kelvara/arm_controller.hpp>

int main(int argc, char** argv) {
  std::string interface;
  bool can_fd = false;
  auto mode = kelvara::damiao_motor::MIT_MODE;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--fd") {
      can_fd = true;
    } else if (argument == "--pos-vel") {
      mode = kelvara::damiao_motor::POS_VEL_MODE;
    } else if (argument.rfind('-', 0) == std::string::npos && interface.empty()) {
      interface = argument;
    }
  }
  try {
    const auto wait = [] { std::this_thread::sleep_for(std::chrono::milliseconds(2500)); };
    ArmController arm(/*with_gripper=*/false, interface, can_fd, mode);  // goes home in 2 s
    wait();
    arm.set_joint({0.6, 0.5, -0.4, 0.5, -0.6, 0.8}, 2.0);  // radians, seconds
    wait();
    const Eigen::VectorXd q = arm.get_joint();
    std::printf("joints: %.3f %.3f %.3f %.3f %.3f %.3f rad\n", q[0], q[1], q[2], q[3], q[4], q[5]);
    arm.set_joint(std::vector<double>(6, 0.0), 2.0);
    wait();
    arm.cleanup();  // disables the motors: the arm sinks, so end at a low pose
  } catch (const std::exception& error) {
    std::fprintf(stderr, "first_motion: %s\n", error.what());
    return 1;
  }
}
