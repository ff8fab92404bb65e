#include "simulation/simulated_arm/arm_physics.hpp"

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#include <mujoco/mujoco.h>

#include "simulation/simulated_arm/motor_facts.hpp"

namespace kelvara::simulation {
namespace {

constexpr double kPointInertia = 1e-9;  // kg·m²; MuJoCo requires more than 0

template <typename Values>
std::string numbers(const Values& values) {
  std::ostringstream text;
  text << std::setprecision(17);
  for (const double value : values) {
    text << value << ' ';
  }
  return text.str();
}

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

/// The arm in MuJoCo's own format.
std::string model_text(const RobotDescription& description, double load_kg) {
  std::ostringstream out;
  out << std::setprecision(17) << "<mujoco model='arm'>"
      << "<compiler angle='radian' eulerseq='XYZ' balanceinertia='false'/>"
      << "<option timestep='" << ArmPhysics::kStepS << "' gravity='0 0 -9.81'/><worldbody>";
  for (std::size_t i = 0; i < description.joints.size(); ++i) {
    const JointDescription& joint = description.joints[i];
    const Drive& drive = kMotors[i].drive;
    out << "<body name='link" << i + 1 << "' pos='" << numbers(joint.origin) << "' euler='"
        << numbers(joint.rpy) << "'";
    out << "><joint name='" << joint.name << "' type='hinge' axis='" << numbers(joint.axis)
        << "' limited='true' range='" << joint.lower << ' ' << joint.upper << "' armature='"
        << drive.inertia << "' damping='" << drive.viscous << "' frictionloss='"
        << drive.dry_friction << "'/>";
    write_inertial(out, joint.child);
  }
  write_point_mass(out, description.payload.mass, description.payload.com);
  write_point_mass(out, load_kg, description.tool);
  out << "<site name='tool' pos='" << numbers(description.tool) << "'/>";
  for (std::size_t i = 0; i < description.joints.size(); ++i) {
    out << "</body>";
  }
  out << "</worldbody></mujoco>";
  return out.str();
}

mjModel* compile(const std::string& text) {
  const auto files = std::make_unique<mjVFS>();  // megabytes: too large for a thread's stack
  mj_defaultVFS(files.get());
  mj_makeEmptyFileVFS(files.get(), "arm.xml", static_cast<int>(text.size()));
  std::memcpy(files->filedata[0], text.data(), text.size());
  std::array<char, 500> error{};
  mjModel* model = mj_loadXML("arm.xml", files.get(), error.data(), static_cast<int>(error.size()));
  mj_deleteVFS(files.get());
  if (model == nullptr) {
    std::replace(error.begin(), error.end(), '\n', ' ');
    throw std::runtime_error(std::string("the arm cannot be simulated: ") + error.data());
  }
  return model;
}

ArmPhysics::Joints joints_of(const mjtNum* values) {
  ArmPhysics::Joints joints;
  std::copy_n(values, joints.size(), joints.begin());
  return joints;
}

}  // namespace

struct ArmPhysics::Model {
  using ModelPointer = std::unique_ptr<mjModel, decltype(&mj_deleteModel)>;
  using DataPointer = std::unique_ptr<mjData, decltype(&mj_deleteData)>;

  explicit Model(const std::string& text)
      : model(compile(text), mj_deleteModel),
        data(mj_makeData(model.get()), mj_deleteData),
        scratch(mj_makeData(model.get()), mj_deleteData) {}

  ModelPointer model;
  DataPointer data;
  DataPointer scratch;  // for queries that must not disturb the motion
};

ArmPhysics::ArmPhysics(const RobotDescription& description, double load_kg)
    : model_(std::make_unique<Model>(model_text(description, load_kg))) {
  set_positions({});
}

ArmPhysics::~ArmPhysics() = default;

void ArmPhysics::set_positions(const Joints& q) {
  mj_resetData(model_->model.get(), model_->data.get());
  std::copy(q.begin(), q.end(), model_->data->qpos);
  mj_forward(model_->model.get(), model_->data.get());
}

void ArmPhysics::step(const Joints& torque) {
  const mjModel* model = model_->model.get();
  mjData* data = model_->data.get();
  std::copy(torque.begin(), torque.end(), data->qfrc_applied);
  constexpr Triple kNoTorque{};
  mj_applyFT(model, data, tool_force_.data(), kNoTorque.data(), data->site_xpos,
             model->site_bodyid[0], data->qfrc_applied);
  mj_step(model, data);
}

ArmPhysics::Joints ArmPhysics::positions() const { return joints_of(model_->data->qpos); }

ArmPhysics::Joints ArmPhysics::velocities() const { return joints_of(model_->data->qvel); }

Triple ArmPhysics::tool_position() const {
  const mjtNum* at = model_->data->site_xpos;
  return {at[0], at[1], at[2]};
}

ArmPhysics::Joints ArmPhysics::inverse_dynamics(const Joints& q, const Joints& dq,
                                                const Joints& ddq) const {
  const mjModel* model = model_->model.get();
  mjData* data = model_->scratch.get();
  std::copy(q.begin(), q.end(), data->qpos);
  std::copy(dq.begin(), dq.end(), data->qvel);
  std::copy(ddq.begin(), ddq.end(), data->qacc);
  mj_fwdPosition(model, data);
  mj_fwdVelocity(model, data);
  Joints torque{};
  mj_rne(model, data, 1, torque.data());
  for (std::size_t i = 0; i < torque.size(); ++i) {
    torque[i] += kMotors[i].drive.inertia * ddq[i];
  }
  return torque;
}

ArmPhysics::Joints ArmPhysics::rotor_inertia() {
  Joints inertia;
  for (std::size_t i = 0; i < inertia.size(); ++i) {
    inertia[i] = kMotors[i].drive.inertia;
  }
  return inertia;
}

}  // namespace kelvara::simulation
