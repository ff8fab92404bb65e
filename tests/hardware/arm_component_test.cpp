#include "kelvara/hardware/arm_component.hpp"

#include <gtest/gtest.h>

#include "kelvara/hardware/kelvara.hpp"
#include "support/captured_output.hpp"
#include "support/test_bus.hpp"

namespace kelvara::can::socket {
namespace {

using damiao_motor::MotorType;

TEST(ArmComponent, LeavesRegisteredDevicesIntactWhenInitialisedAgain) {
  TestBus bus;
  BusPeer peer;
  Kelvara hardware(TestBus::kInterface, false);
  ArmComponent& arm = hardware.get_arm();
  hardware.init_arm_motors({MotorType::V8_T28}, {1}, {0x2C1});
  const auto earlier = arm.get_dm_devices();  // the facade still dispatches to these
  const std::vector types(3, MotorType::V30_T10);
  arm.init_motor_devices(types, {2, 3, 4}, {0x2C1, 0x2C2, 0x2C3}, false);
  EXPECT_EQ(earlier[0]->get_motor().can_id, 1U);
  arm.enable_all();
  EXPECT_EQ(peer.receive(),
            (std::vector{parse_frame("002#FFFFFFFFFFFFFFFC"), parse_frame("003#FFFFFFFFFFFFFFFC"),
                         parse_frame("004#FFFFFFFFFFFFFFFC")}));
  CapturedOutput output;
  peer.send(parse_frame("2C1#11FFFF8008001F1D"));
  hardware.recv_all(200'000);
  EXPECT_EQ(earlier[0]->get_motor().position, 12.5);
  EXPECT_EQ(arm.find_motor(0)->position, 0.0);
}

}  // namespace
}  // namespace kelvara::can::socket
