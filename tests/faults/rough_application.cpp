// An application without error handling: in the middle of a move one of its threads throws, exits
// the process, ends, or does nothing ("wait"). With "home" it goes home and prints the joint error.
// Usage: rough_application INTERFACE throw|exit|end|wait|home
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <kelvara/arm_controller.hpp>

int main(int argc, char** argv) {
  if (argc != 3) {
    return 2;
  }
  const std::string mode = argv[2];
  const auto wait = [](int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
  };
  auto* arm = new ArmController(false, argv[1], false, kelvara::damiao_motor::MIT_MODE);
  wait(2200);
  if (mode == "home") {
    std::cout << "home within " << arm->get_joint().cwiseAbs().maxCoeff() << std::endl;
    delete arm;
    return 0;
  }
  arm->set_joint({0.6, 0.5, -0.4, 0.5, -0.6, 0.8}, 3.0);
  wait(1000);
  std::cout << "moving" << std::endl;
  std::thread([&mode] {
    if (mode == "throw") {
      throw std::runtime_error("an application's mistake");
    }
    if (mode == "exit") {
      std::exit(3);
    }
  }).join();
  for (int k = 0; k < 30; ++k) {  // short waits: they go on after the process was stopped
    wait(100);
  }
  std::cout << "joint 6 at " << arm->get_joint()[5] << std::endl;
  delete arm;
}
