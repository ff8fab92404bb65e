#include "simulation/simulated_arm/arm_physics.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include <mujoco/mujoco.h>

#include "simulation/simulated_arm/jaw_linkage.hpp"
#include "simulation/simulated_arm/motor_facts.hpp"

namespace kelvara::simulation {
namespace {

// The jaws yield a little at their stops; the linkage's angle is defined this far.
constexpr double kLeastStroke = -0.004;  // m
constexpr double kMostStroke = 0.050;    // m
constexpr double kMaxOverlap = 0.001;    // m, of bodies at the start

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

Triple rpy_of(const mjtNum* R) {
  return {std::atan2(R[7], R[8]), std::atan2(-R[6], std::hypot(R[7], R[8])),
          std::atan2(R[3], R[0])};
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

ArmPhysics::ArmPhysics(const RobotDescription& description, double load_kg,
                       std::optional<Contacts> contacts)
    : contacts_(std::move(contacts)),
      model_(std::make_unique<Model>(
          arm_model(description, load_kg, contacts_ ? &*contacts_ : nullptr))) {
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
  if (has_jaws()) {
    drive_jaws();
  }
  mj_step(model, data);
}

void ArmPhysics::step_at_rest() {
  const Joints q = positions();
  step({});
  std::copy(q.begin(), q.end(), model_->data->qpos);
  std::fill_n(model_->data->qvel, q.size(), 0.0);
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
  std::vector<double> torques(static_cast<std::size_t>(model->nv));  // of the scene, too
  mj_rne(model, data, 1, torques.data());
  Joints torque = joints_of(torques.data());
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

// ---- Jaws, which follow the joints ------------------------------------------

/// The jaws share the motor's inertia and torque equally.
void ArmPhysics::drive_jaws() {
  const double ratio = jaw_ratio_at(jaw_motor_angle());
  const double torque = jaw_torque_ - kJaws.viscous * jaw_motor_velocity();
  for (std::size_t jaw = kJointCount; jaw < kJointCount + 2; ++jaw) {
    model_->model->dof_armature[jaw] = kJaws.inertia / (2.0 * ratio * ratio);
    model_->data->qfrc_applied[jaw] = torque / (2.0 * ratio);
  }
}

double ArmPhysics::jaw_motor_angle() const {
  const mjtNum* strokes = model_->data->qpos + kJointCount;
  return jaw_motor_angle_at(std::clamp((strokes[0] + strokes[1]) / 2.0, kLeastStroke, kMostStroke));
}

double ArmPhysics::jaw_motor_velocity() const {
  const mjtNum* speeds = model_->data->qvel + kJointCount;
  return (speeds[0] + speeds[1]) / 2.0 / jaw_ratio_at(jaw_motor_angle());
}

// ---- The scene --------------------------------------------------------------

BodyPose ArmPhysics::body_pose(const std::string& name) const {
  const std::ptrdiff_t body =
      mj_name2id(model_->model.get(), mjOBJ_BODY, (kBodyPrefix + name).c_str());
  if (body < 0) {
    throw std::invalid_argument("the scene has no body '" + name + "'");
  }
  const mjtNum* at = model_->data->xpos + 3 * body;
  return {{at[0], at[1], at[2]}, rpy_of(model_->data->xmat + 9 * body)};
}

/// What a geom belongs to: a link, a jaw, a body of the scene or the table.
ArmPhysics::Owner ArmPhysics::owner_of(int geom) const {
  const int body = model_->model->geom_bodyid[geom];
  if (body == 0) {
    return {"the table", 0};
  }
  const std::string name = mj_id2name(model_->model.get(), mjOBJ_BODY, body);
  for (const Body& of_scene : contacts_->scene.bodies) {
    if (name == kBodyPrefix + of_scene.name) {
      return {"'" + of_scene.name + "'", of_scene.line};
    }
  }
  return {"'" + name + "'", 0};
}

void ArmPhysics::require_no_overlap() const {
  const mjData* data = model_->data.get();
  for (const mjContact* contact = data->contact; contact != data->contact + data->ncon; ++contact) {
    if (contact->dist >= -kMaxOverlap) {
      continue;
    }
    Owner one = owner_of(contact->geom1);
    Owner other = owner_of(contact->geom2);
    if (one.line < other.line) {
      std::swap(one, other);
    }
    std::ostringstream text;
    text << contacts_->scene.path << ": ";
    if (one.line > 0) {
      text << "line " << one.line << ", ";
    }
    text << one.name << " and " << other.name << " overlap by "
         << std::round(-1e4 * contact->dist) / 10.0 << " mm at the start";
    throw std::runtime_error(text.str());
  }
}

}  // namespace kelvara::simulation
