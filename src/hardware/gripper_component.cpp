#include "kelvara/hardware/gripper_component.hpp"

#include <iostream>

#include "damiao_motor/motor_protocol.hpp"
#include "hardware/jaw_geometry.hpp"

namespace kelvara::can::socket {
namespace {

// Normalised openings and the motor angles (rad) that they map to.
constexpr double kOpenInput = 1.0;
constexpr double kCloseInput = 0.0;
constexpr double kOpenAngle = -1.235463;
constexpr double kCloseAngle = 0.0;

// Where the jaws are sent when a distance out of range is asked for.
constexpr double kFallbackAngle = -1.0;

}  // namespace

GripperComponent::GripperComponent(canbus::CANSocket& socket) : DMDeviceCollection(socket) {}

GripperComponent::~GripperComponent() = default;

void GripperComponent::init_motor_device(damiao_motor::MotorType type, unsigned can_id,
                                         unsigned master_id, bool canfd) {
  // A device must not outlive the record that it refers to.
  get_device_collection().remove_device(device_);
  device_.reset();
  motor_ = std::make_unique<damiao_motor::Motor>(type, can_id, master_id);
  device_ = std::make_shared<damiao_motor::DMCANDevice>(*motor_, damiao_motor::kBroadcastId, canfd);
  get_device_collection().add_device(device_);
}

void GripperComponent::set_position(double x, double kp, double kd) {
  const double q =
      (x - kOpenInput) / (kCloseInput - kOpenInput) * (kCloseAngle - kOpenAngle) + kOpenAngle;
  mit_control_one(0, {kp, kd, q, 0.0, 0.0});
}

void GripperComponent::open(double kp, double kd) { set_position(kOpenInput, kp, kd); }

void GripperComponent::close(double kp, double kd) { set_position(kCloseInput, kp, kd); }

void GripperComponent::set_distance(double d, double kp, double kd) {
  double q = kFallbackAngle;
  if (is_jaw_distance_in_range(d)) {
    q = jaw_angle_from_distance(d);
  } else {
    std::cerr << "Error: Distance out of range! Must be between 0 and 0.085 meters.\n";
  }
  mit_control_one(0, {kp, kd, q, 0.0, 0.0});
}

void GripperComponent::set_tau(double tau) { mit_control_one(0, {0.0, 0.0, 0.0, 0.0, tau}); }

double GripperComponent::position_at_angle(double motor_angle) const {
  return (motor_angle - kOpenAngle) / (kCloseAngle - kOpenAngle) * (kCloseInput - kOpenInput) +
         kOpenInput;
}

}  // namespace kelvara::can::socket
