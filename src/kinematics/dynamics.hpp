#pragma once

#include <kdl/chain.hpp>
#include <kdl/chaindynparam.hpp>
#include <kdl/jntarray.hpp>
#include <kdl/jntspaceinertiamatrix.hpp>

#include "kelvara/kinematics/kinematics.hpp"

/// The torque side of the model: the solver and the storage that its calls reuse.
///
/// It owns a copy of the chain. KDL joints cache the pose computed last, so a chain shared with the
/// pose solvers would tie the control thread to the application's calls.
struct RobotKinematics::Dynamics {
  explicit Dynamics(const KDL::Chain& arm)
      : chain(arm),
        solver(chain, KDL::Vector(0.0, 0.0, -9.81)),
        q(chain.getNrOfJoints()),
        qd(chain.getNrOfJoints()),
        coriolis(chain.getNrOfJoints()),
        gravity(chain.getNrOfJoints()),
        mass(static_cast<int>(chain.getNrOfJoints())) {}

  KDL::Chain chain;
  KDL::ChainDynParam solver;
  KDL::JntArray q;
  KDL::JntArray qd;
  KDL::JntArray coriolis;
  KDL::JntArray gravity;
  KDL::JntSpaceInertiaMatrix mass;
};
