#include "controller/pose_following.hpp"

#include <algorithm>
#include <cmath>

#include <Eigen/Geometry>

#include "kelvara/kinematics/kinematics.hpp"
#include "kelvara/kinematics/transforms.hpp"
#include "kelvara/motion_error.hpp"

#include "description/classic_stream.hpp"

namespace kelvara::controller {
namespace {

// A stream that pauses longer is a new one.
constexpr std::chrono::milliseconds kPause{500};
// How far a joint may turn from one pose to the next: far more than it has to in one configuration.
constexpr double kLeastTurn = 0.3;      // rad
constexpr double kTurnPerMetre = 10.0;  // rad/m
constexpr double kTurnPerRadian = 3.0;

Eigen::Isometry3d transform_of(const Pose& pose) {
  return Eigen::Isometry3d(
      t_from_xyzrpy(Eigen::Vector3d(pose.position.data()), Eigen::Vector3d(pose.rpy.data())));
}

double largest_turn(const Pose& from, const Pose& to) {
  const Eigen::Isometry3d way = transform_of(from).inverse() * transform_of(to);
  const double angle = Eigen::AngleAxisd(way.rotation()).angle();
  return kLeastTurn + kTurnPerMetre * way.translation().norm() + kTurnPerRadian * angle;
}

}  // namespace

JointArray PoseFollowing::solve(const Pose& pose, const JointArray& standing,
                                motion::TimePoint now) {
  const MutexLock lock(mutex_);
  const JointArray near = last_ && now - last_->time < kPause ? last_->q : standing;
  const JointArray q = kinematics_.solve_pose(pose, near);
  const double bound = largest_turn(kinematics_.pose(near), pose);
  for (std::size_t i = 0; i < kJointCount; ++i) {
    if (std::abs(q[i] - near[i]) > bound) {
      description::ClassicStream text;
      text << "joint " << i + 1 << " would have to turn by " << q[i] - near[i]
           << " rad: from the pose before, the arm reaches this one only in another configuration";
      throw MotionError(MotionErrorCode::kBranchChange, text.str(), static_cast<int>(i) + 1);
    }
  }
  last_ = {q, now};
  return q;
}

}  // namespace kelvara::controller
