#pragma once

#include <linux/can.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "simulation/simulated_arm/arm_physics.hpp"
#include "simulation/simulated_arm/motor_facts.hpp"
#include "simulation/simulated_arm/robot_description.hpp"
#include "simulation/simulated_motor/simulated_motor.hpp"

namespace kelvara::simulation {

/// The whole arm behind its bus: six joint motors on rigid-body physics, and a gripper motor on
/// jaws. It has neither a clock nor a bus: the caller passes frames in and advances the time; used
/// by tests and by the real-time loop.
///
/// Until a joint motor is enabled for the first time the arm rests in a cradle at its start pose;
/// after that, disabled motors let it sink.
class SimulatedArm {
 public:
  using Joints = ArmPhysics::Joints;

  struct Options {
    bool with_gripper = true;
    double load_kg = 0.0;                       // held in the gripper
    Joints start{};                             // rad
    std::optional<Scene> scene = std::nullopt;  // nothing collides without one
  };

  /// @throws std::runtime_error when the scene cannot be simulated, or its bodies overlap each
  ///         other or the arm at the start.
  SimulatedArm(const RobotDescription& description, const Options& options);

  /// Passes a frame to every motor (classic frames in a canfd_frame, too) and appends the replies.
  void receive(const canfd_frame& frame, std::vector<canfd_frame>& replies);
  /// Advances the time in whole milliseconds; the remainder is kept for the next call.
  void advance(std::chrono::nanoseconds time);

  /// Puts the joints at these angles (rad), at rest; they are held there if still in the cradle.
  /// The bodies of a scene return to their start.
  void set_joint_positions(const Joints& q);

  /// Applies this force at the tool until the next call: N, along the base frame's axes.
  void set_tool_force(const Triple& force) { physics_.set_tool_force(force); }

  // The true state, joint side.
  Joints joint_positions() const { return physics_.positions(); }    // rad
  Joints joint_velocities() const { return physics_.velocities(); }  // rad/s
  Joints joint_torques() const;                                      // N·m, of the motors
  Triple tool_position() const { return physics_.tool_position(); }  // m
  bool floats() const;           // every joint motor is commanded by torque alone
  double gripper_angle() const;  // rad, motor side
  /// @throws std::invalid_argument when the scene has no body of this name.
  BodyPose body_pose(const std::string& name) const { return physics_.body_pose(name); }

  std::size_t motor_count() const { return motors_.size(); }
  std::size_t enabled_motor_count() const;
  /// Joint motors by index 0 to 5, `kGripper` the gripper's.
  SimulatedMotor& motor(std::size_t index) { return motors_.at(index); }
  const SimulatedMotor& motor(std::size_t index) const { return motors_.at(index); }

 private:
  void step();
  void step_body(const Joints& torque);
  void step_gripper();

  ArmPhysics physics_;
  Joints signs_{};
  std::vector<SimulatedMotor> motors_;
  std::chrono::nanoseconds pending_{0};
  bool in_cradle_ = true;
  double gripper_angle_ = 0.0;     // rad, 0 closed
  double gripper_velocity_ = 0.0;  // rad/s
};

}  // namespace kelvara::simulation
