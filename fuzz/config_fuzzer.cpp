// A configuration file of any bytes: it makes settings that an arm can run on, or one clear error.

#include <algorithm>
#include <stdexcept>

#include "kelvara/kinematics/kinematics.hpp"
#include "support/temporary_directory.hpp"

#include "description/controller_settings.hpp"
#include "fuzz/input.hpp"

namespace {

constexpr const char* kSettings = "config/robot_kinematics.yaml";
constexpr const char* kUrdf = R"(<robot name="r"><link name="a"/>
  <link name="b"><inertial><mass value="2"/></inertial></link>
  <joint name="j" type="revolute"><parent link="a"/><child link="b"/><axis xyz="0 1 0"/></joint>
</robot>)";

const TemporaryWorkingDirectory& directory() {
  static const TemporaryWorkingDirectory instance;
  return instance;
}

template <typename Values>
bool are_limits(const Values& values) {
  return std::all_of(values.begin(), values.end(), [](double value) { return value >= 0.0; });
}

void check_settings(const kelvara::description::ControllerSettings& settings) {
  require(are_limits(settings.pos_vel.max_acc_limits), "an acceleration limit is a limit");
  require(are_limits(settings.pos_vel.max_dec_limits), "a deceleration limit is a limit");
  require(are_limits(settings.pos_vel.kp_apr_limits), "a position gain is a gain");
  require(are_limits(settings.mit.kp) && are_limits(settings.mit.kd), "a gain is a gain");
  require(are_limits(settings.mit.gravity_tau_limits), "a torque limit is a limit");
  const double speed = settings.joint_trajectory.default_speed_percent;
  require(speed > 0.0 && speed <= 1.0, "the default speed is a fraction");
}

/// Whether `read` can open and parse the file; a part may be malformed.
template <typename Read>
bool can_be_parsed(Read read) {
  try {
    read();
  } catch (const kelvara::description::UnreadableFile&) {
    return false;
  } catch (const std::runtime_error&) {
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  silence_reports();
  directory().write("config/BrimloV2.SLDASM.urdf", kUrdf);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  directory().write(kSettings, {reinterpret_cast<const char*>(data), size});
  const bool by_model = can_be_parsed([] {
    RobotKinematics model;
    model.gravity_compensation_kdl({0.5});
    model.forward_kinematics(Eigen::VectorXd::Constant(1, 0.5));
  });
  const bool by_controller = can_be_parsed(
      [] { check_settings(kelvara::description::load_controller_settings(kSettings)); });
  require(by_model == by_controller, "both readers find the file readable, or neither does");
  return 0;
}
