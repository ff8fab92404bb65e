#pragma once

#include <array>
#include <memory>

#include "simulation/simulated_arm/robot_description.hpp"

namespace kelvara::simulation {

/// The arm as rigid bodies (MuJoCo), in steps of one millisecond: gravity, rotor inertia, viscous
/// and dry friction in the joints, joint limits as soft stops. Links do not collide. Joint side.
class ArmPhysics {
 public:
  using Joints = std::array<double, 6>;
  static constexpr double kStepS = 0.001;

  /// @param load_kg A point mass held at the tool frame, beyond the payload.
  explicit ArmPhysics(const RobotDescription& description, double load_kg = 0.0);
  ~ArmPhysics();

  ArmPhysics(const ArmPhysics&) = delete;
  ArmPhysics& operator=(const ArmPhysics&) = delete;

  /// Puts the joints at these angles (rad), at rest.
  void set_positions(const Joints& q);
  /// Applies this force at the tool (N, along the base frame's axes) until the next call.
  void set_tool_force(const Triple& force) { tool_force_ = force; }
  /// Simulates one step with constant joint torques (N·m).
  void step(const Joints& torque);

  Joints positions() const;      // rad
  Joints velocities() const;     // rad/s
  Triple tool_position() const;  // m, in the base frame

  /// Inverse dynamics: the torques that give these accelerations, rotor inertia included, friction
  /// and stops excluded.
  Joints inverse_dynamics(const Joints& q, const Joints& dq, const Joints& ddq) const;
  /// The rotors' inertia at the joints, kg·m².
  static Joints rotor_inertia();

 private:
  struct Model;
  std::unique_ptr<Model> model_;
  Triple tool_force_{};
};

}  // namespace kelvara::simulation
