#include "motion/drive_torque.hpp"

#include <cmath>

namespace kelvara::motion {
namespace {

constexpr double kCoulombSpeed = 0.05;  // rad/s, scale of the smooth sign of the velocity

}  // namespace

JointArray drive_torque(const description::JointDynamicsConfig& drives, const JointArray& dq,
                        const JointArray& ddq) {
  JointArray torque{};
  for (std::size_t i = 0; i < kJointCount; ++i) {
    torque[i] = drives.rotor_inertia[i] * ddq[i] + drives.viscous_friction[i] * dq[i] +
                drives.coulomb_friction[i] * std::tanh(dq[i] / kCoulombSpeed);
  }
  return torque;
}

}  // namespace kelvara::motion
