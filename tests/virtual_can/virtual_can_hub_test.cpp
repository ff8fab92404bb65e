#include "simulation/virtual_can/virtual_can_hub.hpp"

#include <stdexcept>

#include <gtest/gtest.h>

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

}  // namespace
