#include "kelvara/hardware/arm_component.hpp"

#include <memory>
#include <stdexcept>
#include <utility>

#include "damiao_motor/motor_protocol.hpp"
#include "kelvara/damiao_motor/dm_motor_device.hpp"

namespace kelvara::can::socket {

using damiao_motor::DMCANDevice;
using damiao_motor::Motor;

ArmComponent::ArmComponent(canbus::CANSocket& socket) : DMDeviceCollection(socket) {}

ArmComponent::~ArmComponent() = default;

void ArmComponent::init_motor_devices(std::vector<damiao_motor::MotorType> types,
                                      std::vector<unsigned> can_ids,
                                      std::vector<unsigned> master_ids, bool canfd) {
  if (can_ids.size() < types.size() || master_ids.size() < types.size()) {
    throw std::invalid_argument("init_motor_devices: fewer identifiers than motor types");
  }
  for (std::size_t k = 0; k < types.size(); ++k) {
    auto motor = std::make_shared<Motor>(types[k], can_ids[k], master_ids[k]);
    get_device_collection().add_device(
        std::make_shared<DMCANDevice>(std::move(motor), damiao_motor::kBroadcastId, canfd));
  }
}

}  // namespace kelvara::can::socket
