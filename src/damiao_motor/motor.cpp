#include "kelvara/damiao_motor/motor.hpp"

#include <stdexcept>
#include <string>

namespace kelvara::damiao_motor {

Motor::Motor(MotorType motor_type, unsigned command_id, unsigned feedback_can_id)
    : can_id(command_id), master_id(feedback_can_id), type(motor_type) {}

void Motor::set_enabled(bool value) { enabled = value; }

void Motor::update_state(double new_position, double new_velocity, double new_torque, int new_t_mos,
                         int new_t_rotor, int new_feedback_id, int new_error_code) {
  position = new_position;
  velocity = new_velocity;
  torque = new_torque;
  t_mos = new_t_mos;
  t_rotor = new_t_rotor;
  feedback_id = new_feedback_id;
  error_code = new_error_code;
}

void Motor::set_state_tmos(int value) { t_mos = value; }
void Motor::set_state_trotor(int value) { t_rotor = value; }
void Motor::set_state_feedback_id(int value) { feedback_id = value; }
void Motor::set_state_error_code(int value) { error_code = value; }

void Motor::set_temp_param(int rid, double value) { temp_params[rid] = value; }

double Motor::get_param(int rid) const {
  const auto entry = temp_params.find(rid);
  return entry == temp_params.end() ? -1.0 : entry->second;
}

LimitParam Motor::get_limit_param(MotorType type) {
  const auto row = static_cast<std::size_t>(type);
  if (row >= MOTOR_LIMIT_PARAMS.size()) {
    throw std::invalid_argument("Invalid motor type: " + std::to_string(row));
  }
  return MOTOR_LIMIT_PARAMS[row];
}

const char* motor_error_name(int error_code) {
  switch (error_code) {
    case 0x0:
      return "Disabled";
    case 0x1:
      return "Enabled";
    case 0x8:
      return "Over-voltage";
    case 0x9:
      return "Under-voltage";
    case 0xA:
      return "Over-current";
    case 0xB:
      return "MOS over-temperature";
    case 0xC:
      return "Coil over-temperature";
    case 0xD:
      return "Communication lost";
    case 0xE:
      return "Overload";
    default:
      return "Unknown/Reserved";
  }
}

}  // namespace kelvara::damiao_motor
