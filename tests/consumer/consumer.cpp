// Uses the installed library like an application: every public header, the model, an exception.
// Usage: consumer PREFIX, where PREFIX is the installed tree that must contain all files found.
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include <kelvara/arm_controller.hpp>
#include <kelvara/canbus/can_device_collection.hpp>
#include <kelvara/canbus/can_socket.hpp>
#include <kelvara/damiao_motor/dm_motor_control.hpp>
#include <kelvara/damiao_motor/dm_motor_device.hpp>
#include <kelvara/damiao_motor/dm_motor_device_collection.hpp>
#include <kelvara/description/description_files.hpp>
#include <kelvara/description/file_search.hpp>
#include <kelvara/dynamics/standard_parameters.hpp>
#include <kelvara/dynamics/standard_regressor_qor0815.hpp>
#include <kelvara/hardware/arm_component.hpp>
#include <kelvara/hardware/frame_observer.hpp>
#include <kelvara/hardware/gripper_component.hpp>
#include <kelvara/hardware/kelvara.hpp>
#include <kelvara/kinematics/kinematics.hpp>

#if defined(KDL_CHAIN_HPP) || defined(KDL_FRAMES_H) || defined(KDL_JNTARRAY_HPP) || \
    defined(TINYXML2_INCLUDED) || defined(YAML_H_62B23520_7C8E_11DE_8A39_0800200C9A66)
#error "A public header includes KDL, tinyxml2 or yaml-cpp."
#endif

int main(int, char** argv) {
  const std::string prefix = std::string(argv[1]) + "/";
  for (const std::string& path : {kelvara::algorithms::resolve_robot_urdf_path(),
                                  kelvara::algorithms::resolve_robot_kinematics_config_path()}) {
    std::printf("found %s\n", path.c_str());
    if (path.rfind(prefix, 0) != 0) {
      return 1;
    }
  }
  const RobotKinematics model;
  const Eigen::Matrix4d T = model.forward_kinematics(Eigen::VectorXd::Zero(6));
  const double reach = 0.26498 + 0.08415 + 0.124 + 0.13;
  std::printf("tool at %.5f %.5f %.5f m\n", T(0, 3), T(1, 3), T(2, 3));
  if (std::abs(T(0, 3) - reach) > 1e-9) {
    return 1;
  }
  const double rest[6] = {};
  double Y[360];
  standard_regressor_qor0815(rest, rest, rest, Y);
  const auto pi = kelvara::dynamics::standard_parameters(model.chain());
  double torque = -model.gravity_compensation_kdl(std::vector<double>(6))[1];
  for (std::size_t column = 0; column < pi.size(); ++column) {
    torque += Y[6 * column + 1] * pi[column];
  }
  if (std::abs(torque) > 1e-9) {
    return 1;
  }
  try {
    const ArmController arm(false, "kelvara-none", false, kelvara::damiao_motor::MIT_MODE);
  } catch (const kelvara::canbus::CANSocketException& error) {
    std::printf("caught: %s\n", error.what());
    return 0;
  }
  return 1;
}
