#include "kelvara/damiao_motor/dm_motor_device_collection.hpp"

#include <memory>

#include <gtest/gtest.h>

#include "support/test_bus.hpp"

namespace kelvara::damiao_motor {
namespace {

struct OtherDevice : canbus::CANDevice {
  explicit OtherDevice(std::uint32_t id) : CANDevice(id, id, id, false) {}
  void callback(const can_frame&) override {}
  void callback(const canfd_frame&) override {}
};

struct DmDeviceCollection : ::testing::TestWithParam<bool> {
  DmDeviceCollection() {
    // Added out of order: the index follows the feedback identifier.
    for (const std::size_t k : {1U, 0U, 2U}) {
      devices.get_device_collection().add_device(
          std::make_shared<DMCANDevice>(motors[k], 0x7FF, GetParam()));
    }
  }

  void expect_sent(const std::vector<std::string>& frames) {
    std::vector<BusFrame> expected;
    for (const std::string& frame : frames) {
      expected.push_back(parse_frame(frame, GetParam()));
    }
    EXPECT_EQ(peer.receive(), expected);
  }

  TestBus bus;
  BusPeer peer;
  canbus::CANSocket socket{TestBus::kInterface, GetParam()};
  std::vector<Motor> motors{
      {MotorType::V8_T28, 1, 0x11}, {MotorType::V8_T28, 2, 0x12}, {MotorType::V30_T10, 7, 0x17}};
  DMDeviceCollection devices{socket};
};

TEST_P(DmDeviceCollection, SendsCommandsInOrderOfFeedbackIdentifier) {
  devices.enable_all();
  expect_sent({"001#FFFFFFFFFFFFFFFC", "002#FFFFFFFFFFFFFFFC", "007#FFFFFFFFFFFFFFFC"});
  devices.refresh_all();
  expect_sent({"7FF#0100CC0000000000", "7FF#0200CC0000000000", "7FF#0700CC0000000000"});
  devices.set_timeout_all(0);
  expect_sent({"7FF#0100550900000000", "7FF#0200550900000000", "7FF#0700550900000000"});
  devices.set_acc_all({30.0F, 1.0F});  // the third motor has no value
  expect_sent({"7FF#010055040000F041", "7FF#020055040000803F"});
  devices.mit_control_all({{}, {}, {150.0, 1.0, 5.0, 5.0, -2.0}});
  expect_sent({"001#7FFF7FF0000007FF", "002#7FFF7FF0000007FF", "007#B3329544CC333666"});
  devices.pos_vel_control_one(1, {1.0F, -2.5F});
  expect_sent({"102#0000803F000020C0"});
  devices.query_param_one(2, 27);
  devices.write_param_one(0, 9, 1000U);
  devices.refresh_one(3);  // no such motor
  expect_sent({"7FF#0700331B00000000", "7FF#01005509E8030000"});
  devices.clear_error_one(1);
  devices.switch_mode_one(1, MIT_MODE);
  devices.enable_one(1);
  devices.disable_one(2);
  devices.disable_one(3);  // no such motor
  expect_sent({"002#FFFFFFFFFFFFFFFB", "7FF#0200550A01000000", "002#FFFFFFFFFFFFFFFC",
               "007#FFFFFFFFFFFFFFFD"});
}

TEST_P(DmDeviceCollection, FollowsARegistryThatIsChangedFromOutside) {
  auto& registry = devices.get_device_collection();
  registry.add_device(std::make_shared<OtherDevice>(0x10));  // has no index
  registry.add_device(std::make_shared<DMCANDevice>(
      std::make_shared<Motor>(MotorType::V8_T28, 5, 0x11), 0x7FF, GetParam()));  // replaces one
  registry.remove_device(devices.get_dm_devices()[1]);
  devices.enable_all();
  expect_sent({"005#FFFFFFFFFFFFFFFC", "007#FFFFFFFFFFFFFFFC"});
  devices.mit_control_one(1, {});
  devices.mit_control_one(2, {});   // out of range
  devices.mit_control_one(-1, {});  // out of range
  expect_sent({"007#7FFF7FF0000007FF"});
  ASSERT_NE(devices.find_motor(0), nullptr);
  EXPECT_EQ(devices.find_motor(0)->can_id, 5U);
}

INSTANTIATE_TEST_SUITE_P(ClassicAndFd, DmDeviceCollection, ::testing::Bool());

}  // namespace
}  // namespace kelvara::damiao_motor
