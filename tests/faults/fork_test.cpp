// A process that forks while its arm is held.

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "kelvara/arm_controller.hpp"
#include "support/captured_output.hpp"
#include "support/child_process.hpp"
#include "support/simulated_hardware.hpp"

namespace {

TEST(Fork, AChildThatEndsOrCommandsLeavesTheMotorsToItsParent) {
  CapturedOutput output;
  SimulatedHardware hardware(false);
  hardware.live();
  std::optional<ArmController> arm(std::in_place, false, TestBus::kInterface, false,
                                   kelvara::damiao_motor::MIT_MODE);
  BusPeer witness;
  EXPECT_EQ(status_of_child([&] {
              bool refused = false;
              try {
                arm->set_joint(std::vector<double>(6, 0.1), 1.0);
              } catch (const std::runtime_error&) {
                refused = true;
              }
              arm->cleanup();
              arm.reset();
              return refused ? 0 : 1;
            }),
            0);
  hardware.halt();
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_TRUE(hardware.arm().motor(i).is_enabled()) << i;
  }
  const auto disables = [&](std::chrono::milliseconds quiet) {
    const std::vector<BusFrame> frames = witness.receive(quiet);
    return std::count_if(frames.begin(), frames.end(),
                         [](const BusFrame& frame) { return frame.data == "FFFFFFFFFFFFFFFD"; });
  };
  EXPECT_EQ(disables(std::chrono::milliseconds(0)), 0);  // the parent's commands never cease
  arm.reset();
  EXPECT_EQ(disables(std::chrono::milliseconds(30)), 6) << "the parent still disables them";
}

}  // namespace
