#include "controller/pose_following.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>

#include <gtest/gtest.h>

#include "kelvara/kinematics/kinematics.hpp"
#include "kelvara/motion_error.hpp"

namespace kelvara::controller {
namespace {

const RobotKinematics& model() {
  static const RobotKinematics model;
  return model;
}

/// The tool turns about the first axis until joint 1 reaches its limit; beyond it another
/// configuration reaches the pose.
TEST(PoseFollowing, StaysInOneConfiguration) {
  PoseFollowing following(model());
  motion::TimePoint now{std::chrono::hours(1)};
  JointArray standing{2.6, -0.77, -0.54, -1.6, 0.4, -0.5};
  const double room = model().joint_upper()[0] - standing[0];
  Pose pose = model().pose(standing);
  JointArray last = standing;
  const auto turn = [&](double angle) {
    const auto [x, y, z] = pose.position;
    pose.position = {x * std::cos(angle) - y * std::sin(angle),
                     x * std::sin(angle) + y * std::cos(angle), z};
    pose.rpy[2] += angle;
    now += std::chrono::milliseconds(10);
  };
  for (int k = 0; k < static_cast<int>(room / 0.001); ++k) {
    turn(0.001);
    const JointArray q = following.solve(pose, standing, now);
    for (std::size_t i = 0; i < kJointCount; ++i) {
      ASSERT_NEAR(q[i], last[i], 0.002);
    }
    last = q;
  }
  turn(0.002);
  try {
    following.solve(pose, standing, now);
    FAIL() << "not refused";
  } catch (const MotionError& error) {
    EXPECT_EQ(error.code(), MotionErrorCode::kBranchChange) << error.what();
  }
  now += std::chrono::seconds(1);
  EXPECT_THROW(following.solve(pose, last, now), MotionError)
      << "a new stream, from where it stands";
  standing = model().solve_pose(pose, JointArray{-2.6, -0.5, -0.5, 0.0, 0.0, 0.0});
  EXPECT_EQ(following.solve(pose, standing, now), standing) << "the other configuration";
}

}  // namespace
}  // namespace kelvara::controller
