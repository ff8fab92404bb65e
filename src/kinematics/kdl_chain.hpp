#pragma once

#include <kdl/chain.hpp>
#include <kdl/rigidbodyinertia.hpp>

#include "description/kinematics_settings.hpp"
#include "description/urdf.hpp"

namespace kelvara::kinematics {

/// Returns the inertia in the link frame; zero for a mass that is not positive.
KDL::RigidBodyInertia to_kdl_inertia(const description::UrdfInertial& inertial);

/// Builds the chain, with the payload (if configured) and the tool at its end.
/// @throws std::runtime_error for a joint type other than revolute, continuous, prismatic, fixed.
KDL::Chain build_kdl_chain(const description::UrdfDescription& urdf,
                           const description::KinematicsConfig& config);

}  // namespace kelvara::kinematics
