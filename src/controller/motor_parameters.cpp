#include "controller/motor_parameters.hpp"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>

#include "controller/startup_failure.hpp"

#include "description/classic_stream.hpp"
#include "description/timing.hpp"

namespace kelvara::controller {
namespace {

using can::socket::Kelvara;
using damiao_motor::DMDeviceCollection;
using description::kQuietAfterParameterUs;

constexpr double kParameterTolerance = 1e-4;
// Enough for a bus that loses a fifth of its frames in both directions.
constexpr int kMaxRepetitions = 20;

/// One of the motors' parameters: its names, its register and its calls.
struct Parameter {
  const char* configured_label;
  const char* name;
  int rid;
  JointArray description::PosVelModeConfig::*configured;
  void (DMDeviceCollection::*query)();
  void (DMDeviceCollection::*write)(const std::vector<float>&);
};

const std::array<Parameter, 3> kParameters{{
    {"max_acc_limits:", "ACC", damiao_motor::kAccelerationRegister,
     &description::PosVelModeConfig::max_acc_limits, &DMDeviceCollection::query_acc_all,
     &DMDeviceCollection::set_acc_all},
    {"max_dec_limits:", "DEC", damiao_motor::kDecelerationRegister,
     &description::PosVelModeConfig::max_dec_limits, &DMDeviceCollection::query_dec_all,
     &DMDeviceCollection::set_dec_all},
    {"kp_apr_limits:", "KP_APR", damiao_motor::kKpAprRegister,
     &description::PosVelModeConfig::kp_apr_limits, &DMDeviceCollection::query_kp_apr_all,
     &DMDeviceCollection::set_kp_apr_all},
}};

/// The read-back values of each parameter, one for each motor.
using ReadBack = std::array<std::vector<double>, kParameters.size()>;

template <typename Values>
void print_vector(const std::string& label, const Values& values) {
  description::ClassicStream line;
  line << label << std::fixed << std::setprecision(3);
  const char* separator = " [";
  for (const double value : values) {
    line << separator << value;
    separator = ", ";
  }
  line << "]\n";
  std::cout << line.str();
}

ReadBack read_parameters(Kelvara& hardware) {
  DMDeviceCollection& arm = hardware.get_arm();
  ReadBack values;
  for (std::size_t k = 0; k < kParameters.size(); ++k) {
    (arm.*kParameters[k].query)();
    hardware.recv_all(kQuietAfterParameterUs);
    for (const damiao_motor::Motor& motor : arm.get_motors()) {
      values[k].push_back(motor.get_param(kParameters[k].rid));
    }
  }
  return values;
}

bool is_as_configured(double read_back, double configured) {
  return std::abs(read_back - configured) <= kParameterTolerance;
}

/// Writes and reads again what does not read back as configured: a frame may have been lost.
/// @return whether there was anything to repeat.
bool repeat_parameters(Kelvara& hardware, const description::PosVelModeConfig& config,
                       ReadBack& values) {
  DMDeviceCollection& arm = hardware.get_arm();
  bool repeated = false;
  for (std::size_t k = 0; k < kParameters.size(); ++k) {
    const int rid = kParameters[k].rid;
    const JointArray& configured = config.*kParameters[k].configured;
    for (std::size_t i = 0; i < std::min(values[k].size(), configured.size()); ++i) {
      const auto index = static_cast<int>(i);
      if (is_as_configured(values[k][i], configured[i])) {
        continue;
      }
      repeated = true;
      arm.write_param_one(index, rid, static_cast<float>(configured[i]));
      arm.query_param_one(index, rid);
      hardware.recv_all(description::kQuietAfterCommandUs);
      values[k][i] = arm.find_motor(index)->get_param(rid);
    }
  }
  return repeated;
}

void print_read_back(const std::string& when, const ReadBack& values) {
  for (std::size_t k = 0; k < kParameters.size(); ++k) {
    print_vector(when + " " + kParameters[k].name + ":", values[k]);
  }
}

void write_parameters(Kelvara& hardware, const description::PosVelModeConfig& config) {
  for (const Parameter& parameter : kParameters) {
    const JointArray& values = config.*parameter.configured;
    (hardware.get_arm().*parameter.write)({values.begin(), values.end()});
    hardware.recv_all(kQuietAfterParameterUs);
  }
}

void verify_parameter(const std::string& name, const JointArray& configured,
                      const std::vector<double>& read_back) {
  description::ClassicStream message;
  if (read_back.size() != configured.size()) {
    message << name << " verification failed: expected " << configured.size() << " values, got "
            << read_back.size();
    throw StartupFailure(message.str());
  }
  for (std::size_t i = 0; i < configured.size(); ++i) {
    if (!is_as_configured(read_back[i], configured[i])) {
      message << name << " verification failed at joint " << i + 1 << ": expected " << configured[i]
              << ", got " << read_back[i];
      throw StartupFailure(message.str());
    }
  }
}

}  // namespace

void write_and_verify_motor_parameters(Kelvara& hardware,
                                       const description::PosVelModeConfig& config) {
  hardware.recv_all(kQuietAfterParameterUs);
  for (const Parameter& parameter : kParameters) {
    print_vector(parameter.configured_label, config.*parameter.configured);
  }
  hardware.get_arm().set_callback_mode_all(damiao_motor::CallbackMode::PARAM);
  print_read_back("Initial", read_parameters(hardware));
  write_parameters(hardware, config);
  ReadBack verified = read_parameters(hardware);
  for (int k = 0; k < kMaxRepetitions && repeat_parameters(hardware, config, verified); ++k) {
  }
  print_read_back("Verified", verified);
  for (std::size_t k = 0; k < kParameters.size(); ++k) {
    verify_parameter(kParameters[k].name, config.*kParameters[k].configured, verified[k]);
  }
}

}  // namespace kelvara::controller
