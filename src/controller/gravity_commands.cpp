#include "controller/arm_controller_impl.hpp"

void ArmController::identify_gravity_compensation() { impl().publish_kdl_gravity_comp_command(); }

void ArmController::identify_gravity_compensation_kdl() {
  impl().publish_kdl_gravity_comp_command();
}

void ArmController::Impl::publish_gravity_comp_command() {
  const std::lock_guard<std::mutex> lock(command_mutex);
  command.begin_command(kelvara::controller::kRegressorGravity);
  command.target_dq = {};
}

void ArmController::Impl::publish_kdl_gravity_comp_command() {
  const std::lock_guard<std::mutex> lock(command_mutex);
  command.begin_command(kelvara::controller::kChainGravity);
  command.target_dq = {};
}
