#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>

#include "simulation/simulated_arm/arm_model.hpp"
#include "simulation/simulated_arm/robot_description.hpp"

namespace kelvara::simulation {

/// Where a body of the scene is, in the base frame.
struct BodyPose {
  Triple position{};  // m, of its centre
  Triple rpy{};       // rad, R = Rz(yaw) Ry(pitch) Rx(roll)
};

/// The arm as rigid bodies (MuJoCo), in steps of one millisecond: gravity, rotor inertia, viscous
/// and dry friction in the joints, joint limits as soft stops. Joint side.
///
/// Links, jaws and the scene's bodies collide if contacts are given; otherwise nothing collides,
/// and the gripper's jaws are not part of it.
class ArmPhysics {
 public:
  using Joints = std::array<double, 6>;
  static constexpr double kStepS = 0.001;

  /// @param load_kg A point mass held at the tool frame, beyond the payload.
  /// @throws std::runtime_error when contacts need shapes or fingers that the URDF lacks.
  explicit ArmPhysics(const RobotDescription& description, double load_kg = 0.0,
                      std::optional<Contacts> contacts = std::nullopt);
  ~ArmPhysics();

  ArmPhysics(const ArmPhysics&) = delete;
  ArmPhysics& operator=(const ArmPhysics&) = delete;

  /// Puts the joints at these angles (rad), at rest; closes the jaws and puts the scene's bodies
  /// where they start.
  void set_positions(const Joints& q);
  /// Applies this force at the tool (N, along the base frame's axes) until the next call.
  void set_tool_force(const Triple& force) { tool_force_ = force; }
  /// Simulates one step with constant joint torques (N·m).
  void step(const Joints& torque);
  /// Simulates one step of the jaws and the scene while the joints are held where they are.
  void step_at_rest();

  Joints positions() const;      // rad
  Joints velocities() const;     // rad/s
  Triple tool_position() const;  // m, in the base frame

  bool has_contacts() const { return contacts_.has_value(); }
  /// @throws std::runtime_error with the scene's path and both names when bodies overlap.
  void require_no_overlap() const;
  /// @throws std::invalid_argument when the scene has no body of this name.
  BodyPose body_pose(const std::string& name) const;

  // Moving jaws; only when the contacts include them. Motor side.
  bool has_jaws() const { return contacts_ && contacts_->moving_jaws; }
  double jaw_motor_angle() const;     // rad
  double jaw_motor_velocity() const;  // rad/s
  /// Applies this torque to the jaws (N·m) until the next call.
  void set_jaw_torque(double torque) { jaw_torque_ = torque; }

  /// Inverse dynamics: the torques that give these accelerations, rotor inertia included, friction
  /// and stops excluded.
  Joints inverse_dynamics(const Joints& q, const Joints& dq, const Joints& ddq) const;
  /// The rotors' inertia at the joints, kg·m².
  static Joints rotor_inertia();

 private:
  struct Model;

  struct Owner {
    std::string name;  // for a message
    int line;          // in the scene file; 0: not of the scene
  };

  void drive_jaws();
  Owner owner_of(int geom) const;

  std::optional<Contacts> contacts_;
  std::unique_ptr<Model> model_;
  Triple tool_force_{};
  double jaw_torque_ = 0.0;  // N·m
};

}  // namespace kelvara::simulation
