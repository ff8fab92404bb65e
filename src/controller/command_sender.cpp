#include "controller/command_sender.hpp"

#include "controller/feedback_reader.hpp"

#include "description/timing.hpp"
#include "diagnostics/line.hpp"

namespace kelvara::controller {
namespace {

constexpr damiao_motor::MITParam kNoEffort{0.0, 0.0, 0.0, 0.0, 0.0};

void send_joint(damiao_motor::DMDeviceCollection& arm, int joint,
                const damiao_motor::MITParam& command) {
  arm.mit_control_one(joint, command);
}

void send_joint(damiao_motor::DMDeviceCollection& arm, int joint,
                const damiao_motor::POS_VELParam& command) {
  arm.pos_vel_control_one(joint, command);
}

}  // namespace

void CommandSender::send(const CycleRecord& record) {
  if (record.set_point.torque_only && setup_.uses_pos_vel_mode()) {
    warn_of_floating();
  }
  std::visit(
      [&arm = hardware_.get_arm()](const auto& commands) {
        for (std::size_t i = 0; i < kJointCount; ++i) {
          send_joint(arm, static_cast<int>(i), commands[i]);
        }
      },
      record.sent);
  if (record.set_point.torque_only && setup_.has_gripper) {
    hardware_.get_gripper().mit_control_one(0, kNoEffort);
  }
}

void CommandSender::warn_of_floating() {
  if (!pos_vel_gravity_warned) {
    pos_vel_gravity_warned = true;
    diagnostics::error_line()
        << "[control_loop] Gravity compensation torque feedforward is "
           "disabled in POS_VEL_MODE; falling back to position/velocity hold.";
  }
}

void CommandSender::send_gripper(const GripperCommand& command, motion::TimePoint now) {
  if (!setup_.has_gripper || !command.gripper_command_valid || !command.gripper_command_active ||
      now < next_gripper_send) {
    return;
  }
  advance_past(next_gripper_send, description::kGripperPeriod, now);
  hardware_.get_gripper().set_distance(command.gripper_target_distance, command.gripper_speed,
                                       command.gripper_force);
}

}  // namespace kelvara::controller
