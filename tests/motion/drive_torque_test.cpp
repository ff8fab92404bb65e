#include "motion/drive_torque.hpp"

#include <gtest/gtest.h>

namespace kelvara::motion {
namespace {

constexpr description::JointDynamicsConfig kDrives{
    {1, 2, 3, 4, 5, 6}, {0.1, 0.2, 0.3, 0.4, 0.5, 0.6}, {10, 20, 30, 40, 50, 60}};

TEST(DriveTorque, IsTheSumOfInertiaViscousAndCoulombTorque) {
  const JointArray torque = drive_torque(kDrives, {2, -2, 0, 0, 0, 2}, {0, 0, 7, 0, -1, 1});
  const JointArray expected{10.2, -20.4, 21.0, 0.0, -5.0, 67.2};
  for (std::size_t i = 0; i < kJointCount; ++i) {
    EXPECT_NEAR(torque[i], expected[i], 1e-12) << i;
  }
}

TEST(DriveTorque, DoesNotStepWhereTheVelocityChangesItsSign) {
  constexpr double kStep = 1e-4;  // rad/s
  double before = drive_torque(kDrives, {-0.5}, {})[0];
  for (double dq = -0.5 + kStep; dq < 0.5; dq += kStep) {
    const double torque = drive_torque(kDrives, {dq}, {})[0];
    EXPECT_GT(torque, before) << dq;
    EXPECT_LT(torque - before, 10.0 * kStep / 0.04) << dq;
    before = torque;
  }
}

}  // namespace
}  // namespace kelvara::motion
