// A configuration file of any bytes: it makes settings that an arm can run on, or one clear error.

#include <cmath>

#include "controller/controller_config.hpp"
#include "controller/fatal.hpp"
#include "kelvara/kinematics/kinematics.hpp"
#include "support/temporary_directory.hpp"

#include "fuzz/input.hpp"

namespace {

/// Thrown where the library would end the process.
struct StartupEnds {};

constexpr const char* kUnreadable = "Failed to parse kinematics config at ";
constexpr const char* kUrdf = R"(<robot name="r"><link name="a"/>
  <link name="b"><inertial><mass value="2"/></inertial></link>
  <joint name="j" type="revolute"><parent link="a"/><child link="b"/><axis xyz="0 1 0"/></joint>
</robot>)";

const TemporaryWorkingDirectory& directory() {
  static const TemporaryWorkingDirectory instance;
  return instance;
}

/// Whether the file as a whole could be read; a part that is malformed is only refused.
template <typename Load>
bool can_be_read(Load load) {
  try {
    load();
  } catch (const StartupEnds&) {
    return false;
  } catch (const std::runtime_error&) {
  }
  return true;
}

bool is_limit(double value) { return value >= 0.0; }

void check_parts(bool expect_readable) {
  using namespace kelvara::controller;
  const bool readable[]{
      can_be_read([] {
        const JointArray acceleration = load_pos_vel_mode_config().max_acc_limits;
        require(std::all_of(acceleration.begin(), acceleration.end(), is_limit),
                "an acceleration limit is a limit");
      }),
      can_be_read([] {
        const JointArray torque = load_mit_mode_config().gravity_tau_limits;
        require(std::all_of(torque.begin(), torque.end(), is_limit), "a torque limit is a limit");
      }),
      can_be_read([] {
        const double speed = load_joint_trajectory_config().default_speed_percent;
        require(speed > 0.0 && speed <= 1.0, "the default speed is a fraction");
      }),
      can_be_read([] { load_motor_signs_config(); }),
  };
  for (const bool part : readable) {
    require(part == expect_readable, "all parts judge the file alike");
  }
}

}  // namespace

// The linker takes this one instead of the library's, which is in an archive.
void kelvara::controller::fail_startup(const std::string& /*message*/) { throw StartupEnds{}; }

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  silence_reports();
  directory().write("config/BrimloV2.SLDASM.urdf", kUrdf);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  directory().write("config/robot_kinematics.yaml", {reinterpret_cast<const char*>(data), size});
  bool readable = true;
  try {
    RobotKinematics model;
    model.gravity_compensation_kdl({0.5});
    model.forward_kinematics(Eigen::VectorXd::Constant(1, 0.5));
  } catch (const std::runtime_error& error) {
    readable = std::strncmp(error.what(), kUnreadable, std::strlen(kUnreadable)) != 0;
  }
  check_parts(readable);
  return 0;
}
