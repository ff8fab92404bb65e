#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "controller/arm_controller_impl.hpp"
#include "controller/fatal.hpp"
#include "controller/finite.hpp"

using kelvara::controller::fail_startup;
using kelvara::controller::kJointCount;
namespace damiao_motor = kelvara::damiao_motor;

namespace {

constexpr double kSignTolerance = 1e-9;
constexpr double kParameterTolerance = 1e-4;

// How long the bus must be quiet before replies count as complete, in microseconds.
constexpr int kQuietAfterCommandUs = 2000;
constexpr int kQuietAfterParameterUs = 20000;
constexpr int kQuietAfterEnableUs = 500;

// How many such waits a motor's first state is given.
constexpr int kStartPosePatience = 25;

// The motors stop by themselves when nothing is heard for this long, in units of 50 µs: 50 ms.
constexpr unsigned kMotorTimeout = 1000;
constexpr unsigned kMotorTimeoutOff = 0;

std::vector<float> to_floats(const kelvara::controller::JointArray& values) {
  return {values.begin(), values.end()};
}

template <typename Values>
void print_vector(const char* label, const Values& values) {
  std::ostringstream line;
  line << label << std::fixed << std::setprecision(3);
  const char* separator = " [";
  for (const double value : values) {
    line << separator << value;
    separator = ", ";
  }
  line << "]\n";
  std::cout << line.str();
}

std::vector<double> collect_parameter(const damiao_motor::DMDeviceCollection& motors, int rid) {
  std::vector<double> values;
  for (const damiao_motor::Motor& motor : motors.get_motors()) {
    values.push_back(motor.get_param(rid));
  }
  return values;
}

/// Whether every motor has reported that it is enabled, or an error; a register's echo reads as 0.
bool all_motors_reported(const damiao_motor::DMDeviceCollection& motors) {
  const std::vector<damiao_motor::Motor> records = motors.get_motors();
  return std::all_of(records.begin(), records.end(),
                     [](const damiao_motor::Motor& motor) { return motor.error_code != 0; });
}

/// The three motor parameters of position/velocity mode, as read back.
struct MotorParameters {
  std::vector<double> acc;
  std::vector<double> dec;
  std::vector<double> kp_apr;
};

MotorParameters read_parameters(kelvara::can::socket::Kelvara& hardware) {
  auto& arm = hardware.get_arm();
  MotorParameters values;
  arm.query_acc_all();
  hardware.recv_all(kQuietAfterParameterUs);
  values.acc = collect_parameter(arm, damiao_motor::kAccelerationRegister);
  arm.query_dec_all();
  hardware.recv_all(kQuietAfterParameterUs);
  values.dec = collect_parameter(arm, damiao_motor::kDecelerationRegister);
  arm.query_kp_apr_all();
  hardware.recv_all(kQuietAfterParameterUs);
  values.kp_apr = collect_parameter(arm, damiao_motor::kKpAprRegister);
  return values;
}

void verify_parameter(const std::string& name, const kelvara::controller::JointArray& configured,
                      const std::vector<double>& read_back) {
  std::ostringstream message;
  if (read_back.size() != configured.size()) {
    message << name << " verification failed: expected " << configured.size() << " values, got "
            << read_back.size();
    fail_startup(message.str());
  }
  for (std::size_t i = 0; i < configured.size(); ++i) {
    if (!(std::abs(read_back[i] - configured[i]) <= kParameterTolerance)) {
      message << name << " verification failed at joint " << i + 1 << ": expected " << configured[i]
              << ", got " << read_back[i];
      fail_startup(message.str());
    }
  }
}

template <typename Array>
auto to_std_vector(const Array& values) {
  return std::vector<typename Array::value_type>(values.begin(), values.end());
}

}  // namespace

ArmController::Impl::Impl(const std::string& can_interface, bool bus_flag, ArmController* /*owner*/,
                          bool with_gripper, damiao_motor::ControlMode mode)
    : has_gripper(with_gripper), control_mode(mode), hardware(can_interface, bus_flag) {
  if (control_mode != damiao_motor::MIT_MODE && control_mode != damiao_motor::POS_VEL_MODE) {
    throw std::invalid_argument("ArmController only supports MIT_MODE or POS_VEL_MODE.");
  }
  load_configuration();
  initial_kelvara();
  check_start_pose();
}

void ArmController::Impl::load_configuration() {
  pos_vel_config = kelvara::controller::load_pos_vel_mode_config();
  mit_config = kelvara::controller::load_mit_mode_config();
  joint_trajectory_config = kelvara::controller::load_joint_trajectory_config();
  motor_signs = kelvara::controller::load_motor_signs_config();
  for (const double sign : motor_signs) {
    if (!(std::abs(std::abs(sign) - 1.0) <= kSignTolerance)) {
      throw std::invalid_argument("motor_signs must contain only +1 or -1");
    }
  }
  if (kinematics.joints().size() != kJointCount ||
      kinematics.num_joints() != static_cast<int>(kJointCount)) {
    throw std::runtime_error("ArmController needs a chain of exactly 6 moving joints");
  }
  const JointArray rest{};
  JointArray torque{};
  kinematics.inverse_dynamics(rest.data(), rest.data(), rest.data(), torque.data());
  if (!kelvara::controller::all_finite(torque)) {
    throw std::runtime_error("ArmController needs finite masses, inertias and lengths");
  }
  limits.velocity = kelvara::controller::kJointVelocityLimits;
  limits.acceleration = pos_vel_config.max_acc_limits;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    limits.joints.lower[i] = kinematics.joint_lower()[i];
    limits.joints.upper[i] = kinematics.joint_upper()[i];
    limits.joints.has_limit[i] = kinematics.joint_has_limits()[i];
  }
}

void ArmController::Impl::initial_kelvara() {
  auto& arm = hardware.get_arm();
  hardware.init_arm_motors(to_std_vector(kelvara::controller::kJointMotorTypes),
                           to_std_vector(kelvara::controller::kJointCanIds),
                           to_std_vector(kelvara::controller::kJointMasterIds));
  if (has_gripper) {
    hardware.init_gripper_motor(kelvara::controller::kGripperMotorType,
                                kelvara::controller::kGripperCanId,
                                kelvara::controller::kGripperMasterId);
    hardware.get_gripper().clrErr_all();
    hardware.get_gripper().switch_all_motors_mode(damiao_motor::MIT_MODE);
  }
  hardware.recv_all(kQuietAfterCommandUs);
  hardware.set_timeout_all(kMotorTimeoutOff);
  arm.clrErr_all();

  arm.switch_all_motors_mode(control_mode);
  if (uses_pos_vel_mode()) {
    write_and_verify_motor_parameters();
  } else {
    hardware.recv_all(kQuietAfterCommandUs);
  }

  hardware.set_timeout_all(kMotorTimeout);
  std::cout << "\n=== Enabling Motors ===" << std::endl;
  hardware.enable_all();
  hardware.recv_all(kQuietAfterCommandUs);
  hardware.set_callback_mode_all(damiao_motor::CallbackMode::STATE);
  hardware.recv_all(kQuietAfterEnableUs);
  std::cout << "\n=== Enabling Motors Timeout Protection ===" << std::endl;
}

void ArmController::Impl::write_and_verify_motor_parameters() {
  auto& arm = hardware.get_arm();
  const std::vector<float> acc = to_floats(pos_vel_config.max_acc_limits);
  const std::vector<float> dec = to_floats(pos_vel_config.max_dec_limits);
  const std::vector<float> kp_apr = to_floats(pos_vel_config.kp_apr_limits);
  hardware.recv_all(kQuietAfterParameterUs);
  print_vector("max_acc_limits:", pos_vel_config.max_acc_limits);
  print_vector("max_dec_limits:", pos_vel_config.max_dec_limits);
  print_vector("kp_apr_limits:", pos_vel_config.kp_apr_limits);

  arm.set_callback_mode_all(damiao_motor::CallbackMode::PARAM);
  const MotorParameters initial = read_parameters(hardware);
  print_vector("Initial ACC:", initial.acc);
  print_vector("Initial DEC:", initial.dec);
  print_vector("Initial KP_APR:", initial.kp_apr);

  arm.set_acc_all(acc);
  hardware.recv_all(kQuietAfterParameterUs);
  arm.set_dec_all(dec);
  hardware.recv_all(kQuietAfterParameterUs);
  arm.set_kp_apr_all(kp_apr);
  hardware.recv_all(kQuietAfterParameterUs);

  const MotorParameters verified = read_parameters(hardware);
  print_vector("Verified ACC:", verified.acc);
  print_vector("Verified DEC:", verified.dec);
  print_vector("Verified KP_APR:", verified.kp_apr);
  verify_parameter("ACC", pos_vel_config.max_acc_limits, verified.acc);
  verify_parameter("DEC", pos_vel_config.max_dec_limits, verified.dec);
  verify_parameter("KP_APR", pos_vel_config.kp_apr_limits, verified.kp_apr);
}

void ArmController::Impl::check_start_pose() {
  auto& arm = hardware.get_arm();
  arm.refresh_all();
  // Until a motor reports a state, its record may hold the echo of a register write, read as if it
  // were feedback: no place to start a move from. An answer can be late on a loaded machine.
  int patience = kStartPosePatience;
  do {
    hardware.recv_all(kQuietAfterCommandUs);
  } while (!all_motors_reported(arm) && --patience > 0);
  const std::vector<damiao_motor::Motor> motors = arm.get_motors();
  if (motors.size() < 2) {
    return;
  }
  const double joint2 = motor_signs[1] * motors[1].position;
  if (joint2 < kelvara::controller::kMinStartJoint2) {
    std::ostringstream message;
    message << "[ArmController] Startup rejected: joint2=" << joint2
            << " rad is below the safety threshold -1.57 rad.";
    fail_startup(message.str());
  }
}

void ArmController::Impl::start_two_thread() {
  control_thread = std::thread(&Impl::control_loop, this);
  monitor_thread = std::thread(&Impl::monitor_motor_torque, this);
}
