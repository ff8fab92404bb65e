#include "kelvara/hardware/gripper_component.hpp"

#include <utility>

#include "damiao_motor/motor_protocol.hpp"
#include "hardware/jaw_geometry.hpp"

#include "description/gripper_facts.hpp"
#include "diagnostics/line.hpp"

namespace kelvara::can::socket {
namespace {

using damiao_motor::DMCANDevice;
using damiao_motor::Motor;
using description::kGripperClosed;
using description::kGripperOpen;

// From open to closed.
constexpr double kOpeningRange = kGripperClosed.opening - kGripperOpen.opening;
constexpr double kAngleRange = kGripperClosed.motor_angle - kGripperOpen.motor_angle;

}  // namespace

GripperComponent::GripperComponent(canbus::CANSocket& socket) : DMDeviceCollection(socket) {}

GripperComponent::~GripperComponent() = default;

void GripperComponent::init_motor_device(damiao_motor::MotorType type, unsigned can_id,
                                         unsigned master_id, bool canfd) {
  auto motor = std::make_shared<Motor>(type, can_id, master_id);
  auto device = std::make_shared<DMCANDevice>(std::move(motor), damiao_motor::kBroadcastId, canfd);
  get_device_collection().remove_device(device_);
  get_device_collection().add_device(device);
  device_ = std::move(device);
}

void GripperComponent::set_position(double x, double kp, double kd) {
  const double q =
      (x - kGripperOpen.opening) / kOpeningRange * kAngleRange + kGripperOpen.motor_angle;
  mit_control_one(0, {kp, kd, q, 0.0, 0.0});
}

void GripperComponent::open(double kp, double kd) { set_position(kGripperOpen.opening, kp, kd); }

void GripperComponent::close(double kp, double kd) { set_position(kGripperClosed.opening, kp, kd); }

void GripperComponent::set_distance(double d, double kp, double kd) {
  double q = description::kGripperFallbackAngle;
  if (is_jaw_distance_in_range(d)) {
    q = jaw_angle_from_distance(d);
  } else {
    diagnostics::error_line()
        << "Error: Distance out of range! Must be between 0 and 0.085 meters.";
  }
  mit_control_one(0, {kp, kd, q, 0.0, 0.0});
}

void GripperComponent::set_tau(double tau) { mit_control_one(0, {0.0, 0.0, 0.0, 0.0, tau}); }

double GripperComponent::opening_at_angle(double motor_angle) const {
  return (motor_angle - kGripperOpen.motor_angle) / kAngleRange * kOpeningRange +
         kGripperOpen.opening;
}

}  // namespace kelvara::can::socket
