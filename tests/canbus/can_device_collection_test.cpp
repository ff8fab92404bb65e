#include "kelvara/canbus/can_device_collection.hpp"

#include <gtest/gtest.h>

#include "support/test_bus.hpp"

namespace kelvara::canbus {
namespace {

struct RecordingDevice : CANDevice {
  explicit RecordingDevice(std::uint32_t id) : CANDevice(1, id, 0x7FF, false) {}
  void callback(const can_frame&) override { ++classic; }
  void callback(const canfd_frame&) override { ++fd; }
  int classic = 0;
  int fd = 0;
};

TEST(CanDeviceCollection, DispatchesToTheDeviceRegisteredLastUnderTheWholeIdentifier) {
  TestBus bus;
  CANSocket socket(TestBus::kInterface, false);
  CANDeviceCollection devices(socket);
  const auto first = std::make_shared<RecordingDevice>(0x11);
  const auto second = std::make_shared<RecordingDevice>(0x11);
  devices.add_device(nullptr);
  devices.add_device(first);
  devices.add_device(second);
  can_frame frame{};
  frame.can_id = 0x11;
  canfd_frame fd_frame{};
  fd_frame.can_id = 0x11;
  devices.dispatch_frame_callback(frame);
  devices.dispatch_frame_callback(fd_frame);
  for (const canid_t unknown : {0x12U, 0x11U | CAN_EFF_FLAG, 0x11U | CAN_ERR_FLAG}) {
    frame.can_id = unknown;
    devices.dispatch_frame_callback(frame);
  }
  EXPECT_EQ(first->classic + first->fd, 0);
  EXPECT_EQ(second->classic, 1);
  EXPECT_EQ(second->fd, 1);
  devices.remove_device(first);  // by identifier, whichever device holds it
  EXPECT_TRUE(devices.get_devices().empty());
}

}  // namespace
}  // namespace kelvara::canbus
