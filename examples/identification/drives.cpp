#include "identification/drives.hpp"

#include <iomanip>
#include <ostream>

#include <Eigen/QR>

namespace identification {
namespace {

/// Columns: what multiplies the rotor's inertia, the viscous and the Coulomb friction of a joint.
Eigen::MatrixX3d drive_columns(const Motion& motion, int joint) {
  const Eigen::VectorXd dq = motion.dq.col(joint);
  Eigen::MatrixX3d columns(dq.size(), 3);
  columns << motion.ddq.col(joint), dq, dq.unaryExpr(&smooth_sign);
  return columns;
}

void print_key(std::ostream& out, const char* key, const Joints& values, const char* unit) {
  const Eigen::IOFormat sequence(Eigen::StreamPrecision, Eigen::DontAlignCols, ", ", ", ", "", "",
                                 "[", "]");
  out << "  " << key << ": " << values.transpose().format(sequence) << "  # " << unit << '\n';
}

}  // namespace

Rows model_torques(const Motion& motion, const RobotKinematics& model) {
  Rows torques(motion.q.rows(), 6);
  for (Eigen::Index k = 0; k < torques.rows(); ++k) {
    const Joints q = motion.q.row(k), dq = motion.dq.row(k), ddq = motion.ddq.row(k);
    Joints torque;
    model.inverse_dynamics(q.data(), dq.data(), ddq.data(), torque.data());
    torques.row(k) = torque;
  }
  return torques;
}

Drives fit_drives(const Motion& motion, const Rows& model) {
  Drives drives;
  for (int i = 0; i < 6; ++i) {
    const Eigen::VectorXd remaining = motion.torque.col(i) - model.col(i);
    const Eigen::Vector3d found =
        drive_columns(motion, i).colPivHouseholderQr().solve(remaining).cwiseMax(0.0);
    drives.rotor_inertia[i] = found[0];
    drives.viscous_friction[i] = found[1];
    drives.coulomb_friction[i] = found[2];
  }
  return drives;
}

Rows drive_torques(const Motion& motion, const Drives& drives) {
  Rows torques(motion.q.rows(), 6);
  for (int i = 0; i < 6; ++i) {
    torques.col(i) = drive_columns(motion, i) * Eigen::Vector3d(drives.rotor_inertia[i],
                                                                drives.viscous_friction[i],
                                                                drives.coulomb_friction[i]);
  }
  return torques;
}

void print_settings(std::ostream& out, const Drives& drives) {
  out << std::fixed << std::setprecision(4) << "joint_dynamics:\n";
  print_key(out, "rotor_inertia", drives.rotor_inertia, "kg·m², at the joint");
  print_key(out, "viscous_friction", drives.viscous_friction, "N·m·s/rad");
  print_key(out, "coulomb_friction", drives.coulomb_friction, "N·m");
}

}  // namespace identification
