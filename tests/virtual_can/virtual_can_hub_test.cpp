#include "simulation/virtual_can/virtual_can_hub.hpp"

#include <atomic>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "simulation/virtual_can/interface_directory.hpp"
#include "support/test_bus.hpp"

namespace {

using kelvara::simulation::VirtualCanHub;

TEST(VirtualCanHubTest, KeepsNamesUniqueAndRefusesBadOnes) {
  TestBus bus;
  EXPECT_THROW(VirtualCanHub("can0"), std::runtime_error);
  for (const char* name : {"", "a/b", "a b", "..", "sixteen-letters-"}) {
    EXPECT_THROW(VirtualCanHub{name}, std::invalid_argument) << name;
  }
  EXPECT_THROW(VirtualCanHub("can1", {64}), std::invalid_argument);
}

TEST(VirtualCanHubTest, ShowsItsInterfaceOnlyOnceItIsReady) {
  TestBus bus;
  std::atomic<bool> done{false};
  std::atomic<int> unready{0};
  std::thread watcher([&] {
    while (!done) {
      const auto interface = kelvara::simulation::find_interface("can1");
      const auto state = interface ? kelvara::simulation::map_state(*interface) : nullptr;
      unready += state && state->mtu == 0U ? 1 : 0;
    }
  });
  for (int round = 0; round < 200; ++round) {
    EXPECT_NO_THROW(VirtualCanHub("can1")) << "while another process looks for interfaces";
  }
  done = true;
  watcher.join();
  EXPECT_EQ(unready, 0);
}

}  // namespace
