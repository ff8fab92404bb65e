#include "simulation/simulated_arm/arm_model.hpp"

#include <iomanip>
#include <sstream>

#include "simulation/simulated_arm/arm_physics.hpp"
#include "simulation/simulated_arm/contact_model.hpp"
#include "simulation/simulated_arm/model_text.hpp"
#include "simulation/simulated_arm/motor_facts.hpp"

namespace kelvara::simulation {
namespace {

void write_inertial(std::ostream& out, const LinkDescription& link) {
  out << "<inertial mass='" << link.mass << "' pos='" << numbers(link.com) << "' fullinertia='"
      << numbers(link.inertia) << "'/>";
}

void write_point_mass(std::ostream& out, double mass, const Triple& at) {
  if (mass > 0.0) {
    const Triple inertia{kPointInertia, kPointInertia, kPointInertia};
    out << "<body><inertial mass='" << mass << "' pos='" << numbers(at) << "' diaginertia='"
        << numbers(inertia) << "'/></body>";
  }
}

void write_link(std::ostream& out, const JointDescription& joint, std::size_t index) {
  const Drive& drive = kMotors[index].drive;
  out << "<body name='link" << index + 1 << "' pos='" << numbers(joint.origin) << "' euler='"
      << numbers(joint.rpy) << "'";
  out << "><joint name='" << joint.name << "' type='hinge' axis='" << numbers(joint.axis)
      << "' limited='true' range='" << joint.lower << ' ' << joint.upper << "' armature='"
      << drive.inertia << "' damping='" << drive.viscous << "' frictionloss='" << drive.dry_friction
      << "'/>";
  write_inertial(out, joint.child);
}

}  // namespace

std::string arm_model(const RobotDescription& description, double load_kg,
                      const Contacts* contacts) {
  const ContactModel shapes(description, contacts);
  std::ostringstream out;
  out << std::setprecision(17) << "<mujoco model='arm'>"
      << "<compiler angle='radian' eulerseq='XYZ' balanceinertia='false'/>"
      << "<option timestep='" << ArmPhysics::kStepS << "' gravity='0 0 -9.81'" << shapes.options()
      << "<worldbody>" << shapes.base();
  for (std::size_t i = 0; i < description.joints.size(); ++i) {
    write_link(out, description.joints[i], i);
    out << shapes.link(i);
  }
  write_point_mass(out, description.payload.mass, description.payload.com);
  write_point_mass(out, load_kg, description.tool);
  out << "<site name='tool' pos='" << numbers(description.tool) << "'/>" << shapes.jaws();
  for (std::size_t i = 0; i < description.joints.size(); ++i) {
    out << "</body>";
  }
  out << shapes.scene() << "</worldbody>" << shapes.constraints() << "</mujoco>";
  return out.str();
}

}  // namespace kelvara::simulation
