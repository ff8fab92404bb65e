#include "collision/link_frames.hpp"

#include <stdexcept>

#include "kelvara/kinematics/kinematics.hpp"

namespace kelvara::collision {
namespace {

using Eigen::Isometry3d;
using Eigen::Vector3d;

bool is_rotating(const kinematics::ChainJoint& joint) {
  return joint.type == "revolute" || joint.type == "continuous";
}

Isometry3d origin_of(const kinematics::ChainJoint& joint) {
  return Isometry3d(t_from_xyzrpy(Vector3d(joint.xyz.data()), Vector3d(joint.rpy.data())));
}

}  // namespace

LinkFrames::LinkFrames(const RobotKinematics& model) {
  Place place;
  for (const kinematics::ChainJoint& joint : model.joints()) {
    place.pose = place.pose * origin_of(joint);
    if (joint.type != "fixed") {
      if (!is_rotating(joint) || place.frame == kJointCount) {
        throw std::invalid_argument("Environment: the arm must have six joints, all rotating");
      }
      offset_[place.frame] = place.pose;
      axis_[place.frame] = Vector3d(joint.axis.data());
      place = {place.frame + 1, Isometry3d::Identity()};
    }
    places_.push_back(place);
  }
  if (place.frame != kJointCount) {
    throw std::invalid_argument("Environment: the arm must have six joints, all rotating");
  }
  tool_ = at({}).back().inverse() * Isometry3d(model.home());
}

Frames LinkFrames::at(const JointArray& q) const {
  Frames frames;
  frames[0].setIdentity();
  for (std::size_t i = 0; i < kJointCount; ++i) {
    frames[i + 1] = frames[i] * offset_[i] * Eigen::AngleAxisd(q[i], axis_[i]);
  }
  return frames;
}

JointArray LinkFrames::lever_arms(std::size_t fixed, std::size_t frame, double radius) const {
  JointArray arms{};
  double arm = radius;
  for (std::size_t i = frame; i-- > fixed;) {
    arms[i] = arm;
    arm += offset_[i].translation().norm();
  }
  return arms;
}

}  // namespace kelvara::collision
