#include "kelvara/canbus/can_device_collection.hpp"

#include <utility>

namespace kelvara::canbus {
namespace {

template <typename Frame>
void dispatch(const std::map<std::uint32_t, std::shared_ptr<CANDevice>>& devices,
              const Frame& frame) {
  const auto entry = devices.find(frame.can_id);
  if (entry != devices.end()) {
    entry->second->callback(frame);
  }
}

}  // namespace

CANDevice::~CANDevice() = default;

CANDeviceCollection::CANDeviceCollection(CANSocket& socket) : socket_(socket) {}

CANDeviceCollection::CANDeviceCollection(CANSocket& socket, std::function<void()> on_change)
    : socket_(socket), on_change_(std::move(on_change)) {}

CANDeviceCollection::~CANDeviceCollection() = default;

void CANDeviceCollection::add_device(const std::shared_ptr<CANDevice>& device) {
  if (device) {
    devices_[device->get_response_can_id()] = device;
    report_change();
  }
}

void CANDeviceCollection::remove_device(const std::shared_ptr<CANDevice>& device) {
  if (device && devices_.erase(device->get_response_can_id()) > 0) {
    report_change();
  }
}

void CANDeviceCollection::report_change() const {
  if (on_change_) {
    on_change_();
  }
}

void CANDeviceCollection::dispatch_frame_callback(can_frame& frame) { dispatch(devices_, frame); }

void CANDeviceCollection::dispatch_frame_callback(canfd_frame& frame) { dispatch(devices_, frame); }

}  // namespace kelvara::canbus
