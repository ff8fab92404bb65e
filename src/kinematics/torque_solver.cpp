#include "kinematics/torque_solver.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include <Eigen/Core>
#include <Eigen/Geometry>

#include "kinematics/kdl_arrays.hpp"

namespace kelvara::kinematics {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

constexpr double kGravity = 9.81;  // m/s², along -z of the base frame
constexpr std::size_t kJointsWithoutAllocation = 16;

// The Coriolis function has the same text; programs match on it.
constexpr const char* kGravityMismatch =
    "gravity_compensation_kdl: size mismatch between input vector and KDL chain joints";

/// One joint's position, velocity and acceleration.
struct JointState {
  double q, qd, qdd;
};

/// How a link moves, in its own frame; the base is accelerated against gravity.
struct LinkMotion {
  Vector3d w = Vector3d::Zero();   // angular velocity
  Vector3d dw = Vector3d::Zero();  // angular acceleration
  Vector3d a = Vector3d::Zero();   // acceleration of the frame's origin
};

/// Where a link is in its parent's frame, and the force and the moment about its frame's origin
/// that move it and all behind it, in its own frame.
struct LinkLoad {
  Matrix3d R_parent_link;
  Vector3d p_parent_link;
  Vector3d force;
  Vector3d moment;
};

void place(const MergedLink& link, double q, LinkLoad& load) {
  const Matrix3d& R = link.R_parent_link;
  load.R_parent_link = R;
  load.p_parent_link = link.p_parent_link;
  if (link.is_prismatic) {
    load.p_parent_link += q * R.col(2);
    return;
  }
  const double s = std::sin(q);
  const double c = std::cos(q);
  load.R_parent_link.col(0) = c * R.col(0) + s * R.col(1);
  load.R_parent_link.col(1) = c * R.col(1) - s * R.col(0);
}

LinkMotion moved(const LinkMotion& parent, const LinkLoad& placed, bool is_prismatic,
                 const JointState& joint) {
  const Matrix3d& R = placed.R_parent_link;
  const Vector3d& p = placed.p_parent_link;
  LinkMotion link;
  link.w.noalias() = R.transpose() * parent.w;
  link.dw.noalias() = R.transpose() * parent.dw;
  link.a.noalias() =
      R.transpose() * (parent.a + parent.dw.cross(p) + parent.w.cross(parent.w.cross(p)));
  // The joint's own motion along or about z; v x z = (v.y, -v.x, 0).
  if (is_prismatic) {
    link.a += Vector3d(2.0 * link.w.y() * joint.qd, -2.0 * link.w.x() * joint.qd, joint.qdd);
  } else {
    link.dw += Vector3d(link.w.y() * joint.qd, -link.w.x() * joint.qd, joint.qdd);
    link.w.z() += joint.qd;
  }
  return link;
}

/// The force and the moment that the link's own mass needs.
void set_inertial_load(const MergedLink& link, const LinkMotion& motion, LinkLoad& load) {
  const Vector3d& h = link.first_moment;
  load.force = link.mass * motion.a + motion.dw.cross(h) + motion.w.cross(motion.w.cross(h));
  load.moment =
      link.inertia * motion.dw + motion.w.cross(link.inertia * motion.w) + h.cross(motion.a);
}

/// Outward over the links with their motion, inward with their loads.
/// @param joint_at The state of joint i.
/// @param loads    Scratch, one for each link.
template <class JointAt>
void newton_euler(const std::vector<MergedLink>& links, LinkMotion motion, JointAt joint_at,
                  LinkLoad* loads, double* tau) {
  for (std::size_t i = 0; i < links.size(); ++i) {
    const JointState joint = joint_at(i);
    place(links[i], joint.q, loads[i]);
    motion = moved(motion, loads[i], links[i].is_prismatic, joint);
    set_inertial_load(links[i], motion, loads[i]);
  }
  for (std::size_t i = links.size(); i-- > 0;) {
    const LinkLoad& load = loads[i];
    tau[i] = links[i].is_prismatic ? load.force.z() : load.moment.z();
    if (i > 0) {
      const Vector3d force = load.R_parent_link * load.force;
      loads[i - 1].force += force;
      loads[i - 1].moment += load.R_parent_link * load.moment + load.p_parent_link.cross(force);
    }
  }
}

template <class JointAt>
void compute_torques(const std::vector<MergedLink>& links, double gravity, JointAt joint_at,
                     double* tau) {
  LinkMotion base;
  base.a.z() = gravity;
  if (links.size() <= kJointsWithoutAllocation) {
    std::array<LinkLoad, kJointsWithoutAllocation> loads;
    newton_euler(links, base, joint_at, loads.data(), tau);
  } else {
    std::vector<LinkLoad> loads(links.size());
    newton_euler(links, base, joint_at, loads.data(), tau);
  }
}

}  // namespace

std::vector<double> TorqueSolver::gravity_compensation_kdl(const std::vector<double>& q) const {
  check_joint_count(q.size(), num_joints(), kGravityMismatch);
  std::vector<double> tau(q.size());
  compute_torques(
      links_, kGravity,
      [&](std::size_t i) {
        return JointState{q[i], 0.0, 0.0};
      },
      tau.data());
  return tau;
}

std::vector<double> TorqueSolver::coriolis_compensation_kdl(const std::vector<double>& q,
                                                            const std::vector<double>& qd) const {
  check_joint_count(q.size(), num_joints(), kGravityMismatch);
  check_joint_count(std::min(qd.size(), q.size()), num_joints(), kGravityMismatch);
  std::vector<double> tau(q.size());
  compute_torques(
      links_, 0.0,
      [&](std::size_t i) {
        return JointState{q[i], qd[i], 0.0};
      },
      tau.data());
  return tau;
}

std::vector<double> TorqueSolver::dynamic_compensation_kdl(const std::vector<double>& q,
                                                           const std::vector<double>& qd,
                                                           const std::vector<double>& qdd) const {
  constexpr const char* kMismatch = "dynamic_compensation_kdl: size mismatch";
  check_joint_count(q.size(), num_joints(), kMismatch);
  check_joint_count(std::min({q.size(), qd.size(), qdd.size()}), num_joints(), kMismatch);
  std::vector<double> tau(q.size());
  inverse_dynamics(q.data(), qd.data(), qdd.data(), tau.data());
  return tau;
}

void TorqueSolver::inverse_dynamics(const double* q, const double* qd, const double* qdd,
                                    double* tau) const {
  compute_torques(
      links_, kGravity,
      [&](std::size_t i) {
        return JointState{q[i], qd[i], qdd[i]};
      },
      tau);
}

}  // namespace kelvara::kinematics
